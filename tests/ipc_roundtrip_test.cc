// Round trips between a server in a forked process and clients in this one:
// odd sizes, many clients at once, and clients that misbehave. The server must
// keep answering, stay alive and give back every descriptor.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "CommonIPCServer.h"
#include "forked_children.h"
#include "ipc_test_util.h"
#include "temp_root.h"

namespace {

using bexo_test::IpcExchange;
using std::string_literals::operator""s;

constexpr int kPort = 7501;

std::string Echo(std::string request) { return request; }

int CountDescriptors(pid_t pid) {
  std::error_code error;
  std::filesystem::directory_iterator fds("/proc/" + std::to_string(pid) + "/fd", error);
  return error ? -1 : static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

// The resident set of `pid` from /proc/<pid>/status, or -1.
long ResidentMegabytes(pid_t pid) {
  std::string status = bexo_test::ReadFile("/proc/" + std::to_string(pid) + "/status");
  size_t at = status.find("VmRSS:");
  return at == std::string::npos ? -1 : strtol(status.c_str() + at + 6, nullptr, 10) / 1024;
}

bool SendBytes(int fd, const std::string& bytes) {
  return bexo_test::SendAll(fd, bytes.data(), bytes.size());
}

// Each test gets an echo server in a forked child, which it stops by closing
// the control pipe.
class IpcRoundTripTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    int control[2], ready[2];
    ASSERT_EQ(pipe(control) | pipe(ready), 0);
    server_ = fork();
    ASSERT_GE(server_, 0);
    if (server_ == 0) {
      close(control[1]);
      close(ready[0]);
      BEXO::CommonIPCServer server(kPort);
      server.SetHandler(Echo);
      if (!server.StartListening() || write(ready[1], "r", 1) != 1) _exit(3);
      close(ready[1]);
      char byte;
      while (read(control[0], &byte, 1) < 0 && errno == EINTR) {
      }
      server.StopListening();
      server.CloseSocket();
      _exit(0);  // stalled serving threads end with the process
    }
    close(control[0]);
    close(ready[1]);
    control_ = control[1];
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the server did not start";
    ASSERT_EQ(read(ready[0], &byte, 1), 0);  // the child's end is closed: its descriptors are set
    close(ready[0]);
    baseline_ = CountDescriptors(server_);
    ASSERT_GT(baseline_, 0);
  }

  void TearDown() override {
    if (server_ > 0) {
      close(control_);
      EXPECT_EQ(bexo_test::WaitExit(server_), 0) << "server exit";
    }
    TempRootTest::TearDown();
  }

  std::string SocketPath() const { return Path("/var/bexo/port." + std::to_string(kPort)); }

  // Serving threads close their connection just after the reply leaves, so
  // the count settles shortly after the client is done.
  int SettledDescriptors(int expected) const {
    int count = CountDescriptors(server_);
    for (int i = 0; i < 1000 && count != expected; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      count = CountDescriptors(server_);
    }
    return count;
  }

  void ExpectAnswering() {
    std::string reply;
    ASSERT_TRUE(IpcExchange(kPort, "V1\r\nPING\r\n", &reply));
    EXPECT_EQ(reply, "V1\r\nPING\r\n");
  }

  void ExpectAliveAndClean() {
    ExpectAnswering();
    EXPECT_EQ(waitpid(server_, nullptr, WNOHANG), 0) << "the server died";
    EXPECT_EQ(SettledDescriptors(baseline_), baseline_) << "descriptors leaked";
  }

  pid_t server_ = -1;
  int control_ = -1;
  int baseline_ = 0;
};

std::string Pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

TEST_F(IpcRoundTripTest, BodiesComeBackWhole) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"abc\0def"s, "abc"},  // the handler sees a C string
      {"\x01\xff\r\n\x7f", "\x01\xff\r\n\x7f"},
      {Pattern(1 << 20), Pattern(1 << 20)},
  };
  for (const auto& [request, expected] : cases) {
    std::string reply = "unset";
    ASSERT_TRUE(IpcExchange(kPort, request, &reply)) << request.size();
    EXPECT_TRUE(reply == expected) << request.size() << " bytes came back as " << reply.size();
  }
  ExpectAliveAndClean();
}

TEST_F(IpcRoundTripTest, ManyConcurrentClientsEachGetTheirOwnReply) {
  constexpr int kThreads = 16;
  std::atomic<int> wrong{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> clients;
  for (int t = 0; t < kThreads; ++t) {
    clients.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      for (int i = 0; i < 25; ++i) {
        std::string request = std::to_string(t) + "/" + std::to_string(i) + std::string(t * 1000, 'p');
        std::string reply;
        if (!IpcExchange(kPort, request, &reply) || reply != request) ++wrong;
      }
    });
  }
  go = true;
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(wrong.load(), 0);
  ExpectAliveAndClean();
}

// One stalled client announces 2 GiB: the server may reserve that much, but
// must not touch it before the bytes arrive.
TEST_F(IpcRoundTripTest, StalledClientsHoldOnlyTheirOwnThreads) {
  long resident_before = ResidentMegabytes(server_);
  ASSERT_GE(resident_before, 0);
  std::vector<int> stalled;
  for (const std::string& start : {"\x64\0\0\0"s + std::string(10, 's'), "\x64\0\0\0"s + std::string(10, 's'),
                                   "\xff\xff\xff\x7f" "abc"s}) {
    stalled.push_back(bexo_test::ConnectUnix(SocketPath()));
    ASSERT_TRUE(SendBytes(stalled.back(), start));
  }
  for (int i = 0; i < 20; ++i) ExpectAnswering();
  // Where ptrdiff_t is 32 bits malloc refuses 2 GiB, so the server drops that client.
  const int held = PTRDIFF_MAX > 0x7fffffff ? 3 : 2;
  EXPECT_EQ(SettledDescriptors(baseline_ + held), baseline_ + held);
  for (int i = 0; i < 40; ++i) {
    long resident = ResidentMegabytes(server_);
    ASSERT_GE(resident, 0);
    ASSERT_LT(resident - resident_before, 256) << "the announced length was committed";
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  for (int fd : stalled) close(fd);
  ExpectAliveAndClean();
}

// Clients that close at once or after a bad frame are forgotten.
TEST_F(IpcRoundTripTest, ServerSurvivesClientsThatHangUpOrSendGarbage) {
  const std::string cases[] = {
      ""s, "\x01\x00"s, "\xff\xff\xff\xff"s, "\xff\xff\xff\x7f" "abc"s, "\x10\x00\x00\x00hello"s,
      "GET / HTTP/1.0\r\n\r\n"s,
  };
  for (const std::string& bytes : cases) {
    SCOPED_TRACE(::testing::PrintToString(bytes));
    for (int i = 0; i < 5; ++i) {
      int fd = bexo_test::ConnectUnix(SocketPath());
      ASSERT_GE(fd, 0);
      SendBytes(fd, bytes);
      close(fd);
    }
    ExpectAliveAndClean();
  }
}

}  // namespace
