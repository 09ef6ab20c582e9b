// The client against hand-made servers on real Unix sockets: missing, busy,
// silent, trickling and misbehaving peers.
#include "CommonIPCClient.h"

#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ipc/ipc_clock.h"
#include "ipc_test_util.h"
#include "temp_root.h"

namespace {

using bexo_test::SendAll;
using std::string_literals::operator""s;
using Clock = std::chrono::steady_clock;

constexpr int kPort = 7301;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A listening socket at the port's path that answers only as each test says.
class FakeServer {
 public:
  FakeServer(const std::string& path, int backlog) {
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = bexo_test::UnixAddress(path);
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << strerror(errno);
    EXPECT_EQ(listen(fd_, backlog), 0);
  }
  ~FakeServer() { close(fd_); }
  int Accept() { return accept(fd_, nullptr, nullptr); }

 private:
  int fd_;
};

std::string ReadRequest(int fd) {
  uint32_t length = 0;
  if (!bexo_test::ReadExactly(fd, &length, sizeof length)) return "<no header>";
  std::string body(length, '\0');
  return bexo_test::ReadExactly(fd, &body[0], length) ? body : "<short body>";
}

class CommonIPCClientTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    bexo::SetIpcClientSecondForTesting(1000);
    TempRootTest::TearDown();
  }
  std::string SocketPath() const { return Path("/var/bexo/port." + std::to_string(kPort)); }

  static bool Send(BEXO::CommonIPCClient* client, const std::string& body) {
    client->SetupConnection(kPort);
    BEXO::CommonIPCMsgHeader header;
    header.length = static_cast<uint32_t>(body.size());
    return client->SendToServer(body.data(), header);
  }

  // A failed read must leave no body and a zero length; a good one a
  // NUL-terminated body.
  static bool Receive(BEXO::CommonIPCClient* client, std::string* body = nullptr) {
    char* reply = nullptr;
    BEXO::CommonIPCMsgHeader header;
    header.length = 9;
    if (!client->ReceiveFromServer(&reply, &header)) {
      EXPECT_EQ(header.length, 0u);
      EXPECT_EQ(reply, nullptr);
      return false;
    }
    EXPECT_EQ(reply[header.length], '\0');
    if (body != nullptr) body->assign(reply, header.length);
    delete[] reply;
    return true;
  }
};

// Without a server the first connect error ends the attempt: with a client
// second stretched to 10 s, a single back-off sleep would show.
TEST_F(CommonIPCClientTest, NoServerFailsAtOnceWithoutSleeping) {
  for (const char* absence : {"no file", "stale socket", "regular file"}) {
    SCOPED_TRACE(absence);
    unlink(SocketPath().c_str());
    if (absence[0] == 's') FakeServer gone(SocketPath(), 5);
    if (absence[0] == 'r') bexo_test::WriteFile(SocketPath(), "not a socket");
    bexo::SetIpcClientSecondForTesting(10000);
    BEXO::CommonIPCClient client;
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(Send(&client, "V1\r\nPING\r\n"));
    EXPECT_LT(SecondsSince(start), 5.0);
    EXPECT_FALSE(Receive(&client));
  }
}

// Fills the backlog of a server that never accepts; returns the pending sockets.
std::vector<int> FillBacklog(const std::string& path) {
  sockaddr_un address = bexo_test::UnixAddress(path);
  std::vector<int> pending;
  for (int i = 0; i < 64; ++i) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      EXPECT_EQ(errno, EAGAIN);
      close(fd);
      return pending;
    }
    pending.push_back(fd);
  }
  ADD_FAILURE() << "the backlog never filled";
  return pending;
}

TEST_F(CommonIPCClientTest, BusyServerIsRetriedUntilThirtySecondsWereSlept) {
  FakeServer busy(SocketPath(), 0);
  std::vector<int> pending = FillBacklog(SocketPath());
  bexo::SetIpcClientSecondForTesting(5);
  BEXO::CommonIPCClient client;
  client.SetupConnection(kPort);
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(client.ConnectToServer());
  EXPECT_GE(SecondsSince(start), 30 * 0.005);  // sleeps of 1 to 3 s until more than 29 were spent
  for (int fd : pending) close(fd);
}

// The read gives up after 95 silent client seconds (10 ms each here), also
// when data trickles in: 100 bytes at one per 120 ms would take 12 s. The
// connected socket waits in read(); one made non-blocking again waits in poll().
TEST_F(CommonIPCClientTest, ReadGivesUpAfterNinetyFiveSilentSeconds) {
  bexo::SetIpcClientSecondForTesting(10);
  for (int round = 0; round < 4; ++round) {
    bool trickle = round & 1;
    bool unblocked = round & 2;
    SCOPED_TRACE(std::string(trickle ? "trickling" : "silent") + (unblocked ? ", unblocked" : ""));
    FakeServer server(SocketPath(), 5);
    int peer = -1;
    std::thread serve([&] {
      EXPECT_EQ(ReadRequest(peer = server.Accept()), "V1\r\nWAIT\r\n");
      uint32_t length = 100;
      bool open = trickle && SendAll(peer, &length, sizeof length);
      for (uint32_t i = 0; open && i < length; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        open = SendAll(peer, "x", 1);
      }
    });
    BEXO::CommonIPCClient client;
    ASSERT_TRUE(Send(&client, "V1\r\nWAIT\r\n"));
    if (unblocked) {
      ASSERT_GT(client.SetSocketUnblocked(), 0);
    }
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(Receive(&client));
    EXPECT_GE(SecondsSince(start), 95 * 0.010);
    serve.join();
    char byte;
    EXPECT_EQ(read(peer, &byte, 1), 0) << "the client closes its socket";
    close(peer);
    unlink(SocketPath().c_str());
  }
}

// A server that speaks or hangs up before the request is complete makes the
// write fail (and must not kill the client with SIGPIPE).
TEST_F(CommonIPCClientTest, RudeServerMakesTheWriteFail) {
  for (bool talks_first : {true, false}) {
    SCOPED_TRACE(talks_first ? "talks first" : "hangs up");
    FakeServer rude(SocketPath(), 5);
    int peer = -1;
    std::thread serve([&] {
      peer = rude.Accept();
      if (talks_first) SendAll(peer, "early", 5);
      if (!talks_first) close(peer), peer = -1;
    });
    BEXO::CommonIPCClient client;
    EXPECT_FALSE(Send(&client, std::string(8 << 20, 'r')));
    serve.join();
    if (peer >= 0) close(peer);
    EXPECT_FALSE(Receive(&client)) << "the failed write closed the socket";
    unlink(SocketPath().c_str());
  }
}

// Raw reply bytes, and the body ReceiveFromServer must yield ("!" when it fails).
TEST_F(CommonIPCClientTest, ReadsOneFrame) {
  const std::pair<std::string, std::string> cases[] = {
      {"\0\0\0\0"s, ""},
      {"\5\0\0\0a\0b\0c"s, "a\0b\0c"s},
      {"\2\0\0\0okEXTRA"s, "ok"},  // trailing bytes ignored
      {"\2\0"s, "!"},
      {"\x0a\0\0\0abc"s, "!"},
      {"\xff\xff\xff\xff" "abc"s, "!"},
      {""s, "!"},
  };
  for (const auto& [raw, expected] : cases) {
    SCOPED_TRACE(::testing::PrintToString(raw));
    FakeServer server(SocketPath(), 5);
    std::thread serve([&, raw = raw] {
      int peer = server.Accept();
      ReadRequest(peer);
      SendAll(peer, raw.data(), raw.size());
      close(peer);
    });
    BEXO::CommonIPCClient client;
    ASSERT_TRUE(Send(&client, "V1\r\nQ\r\n"));
    std::string body;
    bool ok = Receive(&client, &body);
    serve.join();
    EXPECT_EQ(ok ? body : "!", expected);
    unlink(SocketPath().c_str());
  }
}

}  // namespace
