// Round trips between a server in a forked process and clients in this one:
// odd sizes, many clients at once, and clients that misbehave. The server must
// keep answering, stay alive and give back every descriptor.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CommonIPCServer.h"
#include "ipc_test_util.h"
#include "temp_root.h"

namespace {

using bexo_test::IpcExchange;
using std::string_literals::operator""s;

constexpr int kPort = 7501;

std::string Echo(std::string request) { return request; }

int CountDescriptors(pid_t pid) {
  DIR* dir = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
  if (dir == nullptr) return -1;
  int count = 0;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

bool SendBytes(int fd, const std::string& bytes) { return bexo_test::SendAll(fd, bytes.data(), bytes.size()); }

std::string Frame(const std::string& body) {
  uint32_t length = static_cast<uint32_t>(body.size());
  return std::string(reinterpret_cast<const char*>(&length), sizeof length) + body;
}

class IpcRoundTripTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    int control[2];
    int ready[2];
    ASSERT_EQ(pipe(control), 0);
    ASSERT_EQ(pipe(ready), 0);
    server_ = fork();
    ASSERT_GE(server_, 0);
    if (server_ == 0) {
      close(control[1]);
      close(ready[0]);
      BEXO::CommonIPCServer server(kPort);
      server.SetHandler(Echo);
      if (!server.StartListening()) _exit(3);
      char byte = 'r';
      if (write(ready[1], &byte, 1) != 1) _exit(4);
      close(ready[1]);
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
      int status = 0;
      ASSERT_EQ(waitpid(server_, &status, 0), server_);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "server status " << status;
    }
    TempRootTest::TearDown();
  }

  std::string SocketPath() const { return Path("/var/bexo/port." + std::to_string(kPort)); }

  // Serving threads close their connection just after the reply leaves, so
  // the count settles shortly after the client is done.
  int SettledDescriptors(int expected) const {
    int count = -1;
    for (int i = 0; i < 1000; ++i) {
      count = CountDescriptors(server_);
      if (count == expected) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
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

struct BodyCase {
  const char* name;
  std::string request;
  std::string reply;
};

void PrintTo(const BodyCase& c, std::ostream* out) { *out << c.name; }

class IpcRoundTripBodyTest : public IpcRoundTripTest, public ::testing::WithParamInterface<BodyCase> {};

TEST_P(IpcRoundTripBodyTest, ReplyMatches) {
  std::string reply = "unset";
  ASSERT_TRUE(IpcExchange(kPort, GetParam().request, &reply));
  EXPECT_EQ(reply.size(), GetParam().reply.size());
  EXPECT_TRUE(reply == GetParam().reply);
  ExpectAliveAndClean();
}

std::string Pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, IpcRoundTripBodyTest,
    ::testing::Values(BodyCase{"Empty", "", ""}, BodyCase{"EmbeddedNul", "abc\0def"s, "abc"},
                      BodyCase{"Binary", "\x01\xff\r\n\x7f", "\x01\xff\r\n\x7f"},
                      BodyCase{"OneMiB", Pattern(1 << 20), Pattern(1 << 20)},
                      BodyCase{"FourMiB", Pattern(4 << 20), Pattern(4 << 20)}),
    [](const ::testing::TestParamInfo<BodyCase>& param) { return std::string(param.param.name); });

TEST_F(IpcRoundTripTest, ManyConcurrentClientsEachGetTheirOwnReply) {
  constexpr int kThreads = 16;
  constexpr int kRequests = 25;
  std::atomic<int> wrong{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> clients;
  for (int t = 0; t < kThreads; ++t) {
    clients.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      for (int i = 0; i < kRequests; ++i) {
        std::string request = "client " + std::to_string(t) + " request " + std::to_string(i) +
                              std::string(t * 1000, 'p');
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

TEST_F(IpcRoundTripTest, ClientsThatConnectAndCloseAreForgotten) {
  for (int i = 0; i < 20; ++i) {
    int fd = bexo_test::ConnectUnix(SocketPath());
    ASSERT_GE(fd, 0);
    close(fd);
  }
  ExpectAliveAndClean();
}

TEST_F(IpcRoundTripTest, StalledClientsHoldOnlyTheirOwnThreads) {
  std::vector<int> stalled;
  for (int i = 0; i < 3; ++i) {
    int fd = bexo_test::ConnectUnix(SocketPath());
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(SendBytes(fd, Frame(std::string(100, 's')).substr(0, 4 + 10)));
    stalled.push_back(fd);
  }
  for (int i = 0; i < 20; ++i) ExpectAnswering();
  EXPECT_EQ(SettledDescriptors(baseline_ + 3), baseline_ + 3);
  for (int fd : stalled) close(fd);
  ExpectAliveAndClean();
}

TEST_F(IpcRoundTripTest, ClientThatLeavesBeforeTheReplyDoesNotHurtTheServer) {
  for (int i = 0; i < 3; ++i) {
    int fd = bexo_test::ConnectUnix(SocketPath());
    ASSERT_GE(fd, 0);
    std::thread sender([fd] { SendBytes(fd, Frame(Pattern(1 << 20))); });
    // Give the server a moment to start reading, then hang up mid-exchange.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    shutdown(fd, SHUT_RDWR);
    sender.join();
    close(fd);
  }
  ExpectAliveAndClean();
}

struct GarbageCase {
  const char* name;
  std::string bytes;
};

void PrintTo(const GarbageCase& c, std::ostream* out) { *out << c.name; }

class IpcRoundTripGarbageTest : public IpcRoundTripTest,
                                public ::testing::WithParamInterface<GarbageCase> {};

TEST_P(IpcRoundTripGarbageTest, ServerSurvivesAndKeepsAnswering) {
  for (int i = 0; i < 5; ++i) {
    int fd = bexo_test::ConnectUnix(SocketPath());
    ASSERT_GE(fd, 0);
    SendBytes(fd, GetParam().bytes);
    close(fd);
  }
  ExpectAliveAndClean();
}

INSTANTIATE_TEST_SUITE_P(
    Garbage, IpcRoundTripGarbageTest,
    ::testing::Values(GarbageCase{"PartialHeader", "\x01\x00"s},
                      GarbageCase{"MaximalLengthThenNothing", "\xff\xff\xff\xff"s},
                      GarbageCase{"HugeLengthThenAFewBytes", "\xff\xff\xff\x7f" "abc"s},
                      GarbageCase{"ShortBody", "\x10\x00\x00\x00hello"s},
                      GarbageCase{"Text", "GET / HTTP/1.0\r\n\r\n"s}),
    [](const ::testing::TestParamInfo<GarbageCase>& param) { return std::string(param.param.name); });

}  // namespace
