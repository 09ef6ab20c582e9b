// The server's serving path on arbitrary request bytes: a real connection is
// accepted, the bytes are sent and the sending side shut, and Process() reads
// the frame, runs a parsing handler and answers. The reply must be one
// well-formed frame, or nothing when the request was incomplete.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "CommonIPCServer.h"
#include "IPCParser.h"
#include "product_path.h"
#include "tests/support/ipc_test_util.h"

namespace {

constexpr int kPort = 9201;
constexpr size_t kMaxInput = 64 * 1024;  // fits the socket buffers: no writer thread needed

std::string Answer(std::string request) {
  BEXO::IPCParser parser(request);
  if (!parser.valid) return request;
  std::ostringstream dump;
  parser.Dump(dump);
  return dump.str();
}

BEXO::CommonIPCServer* Server() {
  static BEXO::CommonIPCServer* server = [] {
    auto* s = new BEXO::CommonIPCServer(kPort);
    s->SetHandler(Answer);
    // The listener is stopped at once; its socket stays open for the harness
    // to accept from.
    if (!s->StartListening()) abort();
    s->StopListening();
    return s;
  }();
  return server;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  std::string request(reinterpret_cast<const char*>(data), size);
  if (size >= 4) {
    // Announced lengths beyond a MiB only reserve more address space (covered
    // by the tests); folding them keeps libFuzzer's allocation limit quiet.
    uint32_t announced;
    memcpy(&announced, request.data(), 4);
    announced &= 0xfffff;
    memcpy(&request[0], &announced, 4);
  }
  BEXO::CommonIPCServer* server = Server();
  int client = bexo_test::ConnectUnix(bexo::ProductPath("/var/bexo/port." + std::to_string(kPort)));
  if (client < 0) abort();
  if (!bexo_test::SendAll(client, request.data(), request.size())) abort();
  shutdown(client, SHUT_WR);

  // EventFromClient only looks at the listening socket's bit: a full set
  // stands for "the listener is readable".
  fd_set all;
  memset(&all, 0xff, sizeof all);
  if (!server->EventFromClient(&all)) abort();
  (new BEXO::CommonIPCServer(*server))->Process();

  std::string reply;
  char chunk[65536];
  ssize_t n;
  while ((n = read(client, chunk, sizeof chunk)) > 0) reply.append(chunk, n);
  close(client);

  uint32_t length = 0;
  if (request.size() >= 4) memcpy(&length, request.data(), 4);
  bool complete = request.size() >= 4 && request.size() - 4 >= length;
  if (!complete) {
    if (!reply.empty()) abort();
    return 0;
  }
  uint32_t answered;
  if (reply.size() < 4) abort();
  memcpy(&answered, reply.data(), 4);
  if (reply.size() != 4 + static_cast<size_t>(answered)) abort();
  if (memchr(reply.data() + 4, '\0', answered) != nullptr) abort();  // replies end at a NUL
  return 0;
}
