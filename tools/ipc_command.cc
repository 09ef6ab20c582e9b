// bexo ipc: serve and send IPC requests from the shell, so that two shells
// (or a shell and a daemon) can talk over a port's socket.
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <sstream>
#include <string>

#include "CommonIPCClient.h"
#include "CommonIPCServer.h"
#include "IPCParser.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo ipc serve PORT          answer each request with its parsed dump, or\n"
    "                                    echo it when it does not parse; stop with ^C\n"
    "       bexo ipc send PORT [BODY|-]  send one request (BODY, standard input for -,\n"
    "                                    empty without) and print the reply";

int Usage() { return CommandError(kExitUsage, kUsage); }

bool ParsePort(const char* text, int* port) {
  long long value = 0;
  if (!ParseWholeNumber(text, 0, INT_MAX, &value)) return false;
  *port = static_cast<int>(value);
  return true;
}

// Shows each request on standard output, then answers it.
std::string Answer(std::string request) {
  BEXO::IPCParser parser(request);
  std::string reply = request;
  if (parser.valid) {
    std::ostringstream dump;
    parser.Dump(dump);
    reply = dump.str();
  }
  flockfile(stdout);
  fwrite(request.data(), 1, request.size(), stdout);
  fputc('\n', stdout);
  fflush(stdout);
  funlockfile(stdout);
  return reply;
}

int Serve(int port) {
  // Blocked before the listener starts, so every thread inherits the mask and
  // the signals wait for sigwait below.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  BEXO::CommonIPCServer server(port);
  server.SetHandler(Answer);
  if (!server.StartListening()) {
    return CommandError(kExitFailure, "cannot listen on port " + std::to_string(port) + ": " +
                                          strerror(errno));
  }
  fprintf(stderr, "bexo: listening on port %d\n", port);
  int signal_number = 0;
  sigwait(&stop_signals, &signal_number);
  return kExitOk;  // the server's destructor stops the listener and closes the socket
}

bool ReadStandardInput(std::string* body) {
  char chunk[65536];
  size_t count;
  while ((count = fread(chunk, 1, sizeof chunk, stdin)) > 0) body->append(chunk, count);
  return ferror(stdin) == 0;
}

int Send(int port, const char* body_argument) {
  std::string body;
  if (body_argument != nullptr && strcmp(body_argument, "-") == 0) {
    if (!ReadStandardInput(&body)) return CommandError(kExitFailure, "cannot read standard input");
  } else if (body_argument != nullptr) {
    body = body_argument;
  }
  if (body.size() > UINT32_MAX) return CommandError(kExitUsage, "the body exceeds 4 GiB");

  BEXO::CommonIPCClient client;
  client.SetupConnection(port);
  BEXO::CommonIPCMsgHeader header;
  header.length = static_cast<uint32_t>(body.size());
  if (!client.SendToServer(body.data(), header)) {
    return CommandError(kExitFailure, "cannot send to port " + std::to_string(port));
  }
  char* reply = nullptr;
  if (!client.ReceiveFromServer(&reply, &header)) {
    return CommandError(kExitFailure, "no reply from port " + std::to_string(port));
  }
  fwrite(reply, 1, header.length, stdout);
  delete[] reply;
  return fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

int RunIpc(int argc, char** argv) {
  if (argc < 3) return Usage();
  std::string verb = argv[1];
  int port = 0;
  if (!ParsePort(argv[2], &port)) return CommandError(kExitUsage, std::string("bad port '") + argv[2] + "'");
  if (verb == "serve" && argc == 3) return Serve(port);
  if (verb == "send" && (argc == 3 || argc == 4)) return Send(port, argc == 4 ? argv[3] : nullptr);
  return Usage();
}

}  // namespace

BEXO_COMMAND("ipc", "serve and send IPC requests on a port's Unix socket", RunIpc);
