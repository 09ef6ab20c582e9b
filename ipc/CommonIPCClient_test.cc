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

using bexo_test::ReadExactly;
using bexo_test::SendAll;
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

// Reads one request frame from `fd`, returning its body.
std::string ReadRequest(int fd) {
  uint32_t length = 0;
  if (!ReadExactly(fd, &length, sizeof length)) return "<no header>";
  std::string body(length, '\0');
  if (!ReadExactly(fd, &body[0], length)) return "<short body>";
  return body;
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
};

// Without a server the first connect error ends the attempt: with a client
// second stretched to 10 s, a single back-off sleep would show.
enum class Absent { kNoFile, kStaleSocket, kRegularFile };

class CommonIPCClientNoServerTest : public CommonIPCClientTest,
                                    public ::testing::WithParamInterface<Absent> {};

TEST_P(CommonIPCClientNoServerTest, FailsAtOnceWithoutSleeping) {
  if (GetParam() == Absent::kStaleSocket) {
    FakeServer gone(SocketPath(), 5);
  } else if (GetParam() == Absent::kRegularFile) {
    bexo_test::WriteFile(SocketPath(), "not a socket");
  }
  bexo::SetIpcClientSecondForTesting(10000);
  BEXO::CommonIPCClient client;
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(Send(&client, "V1\r\nPING\r\n"));
  EXPECT_LT(SecondsSince(start), 5.0);

  char* reply = nullptr;
  BEXO::CommonIPCMsgHeader header;
  header.length = 9;
  EXPECT_FALSE(client.ReceiveFromServer(&reply, &header));
  EXPECT_EQ(header.length, 0u);
  EXPECT_EQ(reply, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Absences, CommonIPCClientNoServerTest,
                         ::testing::Values(Absent::kNoFile, Absent::kStaleSocket, Absent::kRegularFile));

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
  // Sleeps of 1 to 3 seconds until more than 29 were spent: at least 30.
  EXPECT_GE(SecondsSince(start), 30 * 0.005);
  for (int fd : pending) close(fd);
}

TEST_F(CommonIPCClientTest, BusyServerThatCatchesUpIsReached) {
  FakeServer busy(SocketPath(), 0);
  std::vector<int> pending = FillBacklog(SocketPath());
  bexo::SetIpcClientSecondForTesting(100);  // a budget of at least 3 s real time
  std::thread drain([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    for (size_t i = 0; i <= pending.size(); ++i) {
      int fd = busy.Accept();
      if (fd >= 0) close(fd);
    }
  });
  BEXO::CommonIPCClient client;
  client.SetupConnection(kPort);
  EXPECT_TRUE(client.ConnectToServer());
  drain.join();
  for (int fd : pending) close(fd);
}

TEST_F(CommonIPCClientTest, SilentServerFailsTheReadAfterNinetyFiveSeconds) {
  FakeServer silent(SocketPath(), 5);
  bexo::SetIpcClientSecondForTesting(10);
  int peer = -1;
  std::string request;
  std::thread serve([&] {
    peer = silent.Accept();
    request = ReadRequest(peer);
  });
  BEXO::CommonIPCClient client;
  ASSERT_TRUE(Send(&client, "V1\r\nWAIT\r\n"));
  serve.join();
  EXPECT_EQ(request, "V1\r\nWAIT\r\n");

  Clock::time_point start = Clock::now();
  char* reply = nullptr;
  BEXO::CommonIPCMsgHeader header;
  EXPECT_FALSE(client.ReceiveFromServer(&reply, &header));
  EXPECT_GE(SecondsSince(start), 95 * 0.010);
  EXPECT_EQ(header.length, 0u);

  char byte;
  EXPECT_EQ(read(peer, &byte, 1), 0) << "the client closes its socket";
  close(peer);
}

TEST_F(CommonIPCClientTest, TricklingDataDoesNotRenewTheSilenceBudget) {
  FakeServer slow(SocketPath(), 5);
  bexo::SetIpcClientSecondForTesting(10);  // 50 ms rounds
  std::thread serve([&] {
    int peer = slow.Accept();
    ReadRequest(peer);
    uint32_t length = 100;
    bool open = SendAll(peer, &length, sizeof length);
    // One byte per ~2.4 silent rounds: 100 bytes would need about 240 rounds.
    for (uint32_t i = 0; open && i < length; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(120));
      open = SendAll(peer, "x", 1);
    }
    close(peer);
  });
  BEXO::CommonIPCClient client;
  ASSERT_TRUE(Send(&client, "V1\r\nSLOW\r\n"));
  char* reply = nullptr;
  BEXO::CommonIPCMsgHeader header;
  EXPECT_FALSE(client.ReceiveFromServer(&reply, &header));
  serve.join();
}

// A server that speaks or hangs up before the request is complete makes the
// write fail (and must not kill the client with SIGPIPE).
enum class Rude { kTalksFirst, kHangsUp };

class CommonIPCClientRudeServerTest : public CommonIPCClientTest,
                                      public ::testing::WithParamInterface<Rude> {};

TEST_P(CommonIPCClientRudeServerTest, AbandonsTheWrite) {
  FakeServer rude(SocketPath(), 5);
  int peer = -1;
  std::thread serve([&] {
    peer = rude.Accept();
    if (GetParam() == Rude::kTalksFirst) {
      SendAll(peer, "early", 5);
    } else {
      close(peer);
      peer = -1;
    }
  });
  BEXO::CommonIPCClient client;
  EXPECT_FALSE(Send(&client, std::string(8 << 20, 'r')));
  serve.join();
  if (peer >= 0) close(peer);

  char* reply = nullptr;
  BEXO::CommonIPCMsgHeader header;
  EXPECT_FALSE(client.ReceiveFromServer(&reply, &header)) << "the failed write closed the socket";
}

INSTANTIATE_TEST_SUITE_P(Servers, CommonIPCClientRudeServerTest,
                         ::testing::Values(Rude::kTalksFirst, Rude::kHangsUp));

// Replies as raw bytes; `body_ok` says whether ReceiveFromServer must succeed.
struct ReplyCase {
  const char* name;
  std::string raw;
  bool ok;
  std::string body;
};

void PrintTo(const ReplyCase& c, std::ostream* out) { *out << c.name; }

class CommonIPCClientReplyTest : public CommonIPCClientTest,
                                 public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(CommonIPCClientReplyTest, ReadsOneFrame) {
  FakeServer server(SocketPath(), 5);
  std::thread serve([&] {
    int peer = server.Accept();
    ReadRequest(peer);
    SendAll(peer, GetParam().raw.data(), GetParam().raw.size());
    close(peer);
  });
  BEXO::CommonIPCClient client;
  ASSERT_TRUE(Send(&client, "V1\r\nQ\r\n"));
  char* reply = nullptr;
  BEXO::CommonIPCMsgHeader header;
  bool ok = client.ReceiveFromServer(&reply, &header);
  serve.join();
  ASSERT_EQ(ok, GetParam().ok);
  if (!ok) {
    EXPECT_EQ(header.length, 0u);
    return;
  }
  ASSERT_EQ(header.length, GetParam().body.size());
  EXPECT_EQ(std::string(reply, header.length), GetParam().body);
  EXPECT_EQ(reply[header.length], '\0');
  delete[] reply;
}

using std::string_literals::operator""s;

INSTANTIATE_TEST_SUITE_P(
    Replies, CommonIPCClientReplyTest,
    ::testing::Values(ReplyCase{"Empty", "\0\0\0\0"s, true, ""},
                      ReplyCase{"EmbeddedNuls", "\5\0\0\0a\0b\0c"s, true, "a\0b\0c"s},
                      ReplyCase{"TrailingBytesIgnored", "\2\0\0\0okEXTRA"s, true, "ok"},
                      ReplyCase{"ShortHeader", "\2\0"s, false, ""},
                      ReplyCase{"ShortBody", "\x0a\0\0\0abc"s, false, ""},
                      ReplyCase{"HugeAnnouncedLength", "\xff\xff\xff\xff" "abc"s, false, ""},
                      ReplyCase{"NoReply", ""s, false, ""}),
    [](const ::testing::TestParamInfo<ReplyCase>& param) { return std::string(param.param.name); });

}  // namespace
