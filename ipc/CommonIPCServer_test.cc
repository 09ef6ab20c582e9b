// The server in this process, spoken to through the real client.
#include "CommonIPCServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "UxLog.h"

#include "ipc/ipc_clock.h"
#include "ipc_test_util.h"
#include "product_path.h"
#include "temp_root.h"

namespace {

using bexo_test::IpcExchange;
using std::string_literals::operator""s;

constexpr int kPort = 7401;

std::string Bracket(std::string request) { return "[" + request + "]"; }
std::string Empty(std::string) { return ""; }
std::string CutAtNul(std::string) { return "kept\0dropped"s; }
std::string Throw(std::string) { throw std::runtime_error("boom"); }
constexpr size_t kLargeReply = 4 << 20;  // far beyond a socket's buffer
std::string Large(std::string) { return std::string(kLargeReply, 'x'); }
std::string ReportSignalMask(std::string) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGINT) && sigismember(&mask, SIGTERM) ? "blocked" : "open";
}

class CommonIPCServerTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    UxLog::setSink(nullptr);
    UxLog::setLevel(saved_level_);
    bexo::SetIpcClientSecondForTesting(1000);
    TempRootTest::TearDown();
  }
  std::string SocketPath() const { return Path("/var/bexo/port." + std::to_string(kPort)); }

  // Collects the debug log (written from the listener thread).
  void CaptureLog() {
    UxLog::setLevel(3);
    UxLog::setSink([this](const UxLogRecord& record) {
      std::lock_guard<std::mutex> hold(log_mutex_);
      log_ += record.text + "\n";
    });
  }
  std::string Log() {
    std::lock_guard<std::mutex> hold(log_mutex_);
    return log_;
  }

  // A raw connection that sends `frame` (as far as the server lets it: it may
  // close first) and reads nothing; -1 when it cannot connect.
  int SendRaw(const std::string& frame) {
    int fd = bexo_test::ConnectUnix(SocketPath());
    if (fd >= 0) bexo_test::SendAll(fd, frame.data(), frame.size());
    return fd;
  }

 private:
  int saved_level_ = UxLog::level();
  std::mutex log_mutex_;
  std::string log_;
};

// Whether the server closed `fd`'s connection within `seconds` (unread data
// may still be queued).
bool PeerClosed(int fd, int seconds) {
  pollfd hangup{fd, POLLRDHUP, 0};
  return poll(&hangup, 1, seconds * 1000) == 1 && (hangup.revents & (POLLHUP | POLLRDHUP)) != 0;
}

// Each request is sent twice: the server keeps serving after any handler,
// one that threw included.
TEST_F(CommonIPCServerTest, AnswersWithTheHandlersResult) {
  struct Case {
    BEXO::CommonIPCServer::Handler handler;
    std::string request, reply;
  };
  const Case cases[] = {
      {Bracket, "V1\r\nPING\r\n", "[V1\r\nPING\r\n]"},
      {Bracket, "", "[]"},
      {Empty, "x", ""},
      {CutAtNul, "x", "kept"},
      {nullptr, "x", ""},
      {Throw, "boom", ""},
      {ReportSignalMask, "", "blocked"},  // serving threads block the stop signals
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.request) + " -> " + ::testing::PrintToString(c.reply));
    BEXO::CommonIPCServer server(kPort);
    server.SetHandler(c.handler);
    ASSERT_TRUE(server.StartListening());
    for (int i = 0; i < 2; ++i) {
      std::string reply = "unset";
      ASSERT_TRUE(IpcExchange(kPort, c.request, &reply));
      EXPECT_EQ(reply, c.reply);
    }
  }
}

TEST_F(CommonIPCServerTest, StartFailsWhenTheSocketCannotBeBound) {
  ASSERT_EQ(rmdir(Path("/var/bexo").c_str()), 0);
  bexo_test::WriteFile(Path("/var/bexo"), "a file where the directory belongs");
  BEXO::CommonIPCServer server(kPort);
  EXPECT_EQ(server.CreateSocket(), -1);
  EXPECT_FALSE(server.StartListening());
}

// A world-writable socket replaces a stale file. Stopping leaves it open
// (connections queue, unserved); closing or destroying the server makes
// clients fail, without a retry sleep.
TEST_F(CommonIPCServerTest, StartStopCloseAndDestroy) {
  BEXO::CommonIPCServer idle(kPort);
  idle.StopListening();
  idle.StopListening();
  EXPECT_FALSE(bexo_test::FileExists(SocketPath()));

  bexo_test::WriteFile(SocketPath(), "left over");
  bexo::SetIpcClientSecondForTesting(5);
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  ASSERT_TRUE(server.StartListening());
  EXPECT_FALSE(server.StartListening()) << "starting twice";
  struct stat st;
  ASSERT_EQ(lstat(SocketPath().c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0666u);
  std::string reply;
  ASSERT_TRUE(IpcExchange(kPort, "a", &reply));
  EXPECT_EQ(reply, "[a]");
  server.StopListening();
  EXPECT_TRUE(bexo_test::FileExists(SocketPath()));
  BEXO::CommonIPCClient queued;
  queued.SetupConnection(kPort);
  BEXO::CommonIPCMsgHeader header;
  EXPECT_TRUE(queued.SendToServer("", header));
  char* body = nullptr;
  EXPECT_FALSE(queued.ReceiveFromServer(&body, &header));
  server.CloseSocket();
  EXPECT_FALSE(IpcExchange(kPort, "late", &reply));

  { BEXO::CommonIPCServer(kPort).StartListening(); }
  bexo::SetIpcClientSecondForTesting(10000);  // a retry sleep would take 10 s
  EXPECT_FALSE(IpcExchange(kPort, "anyone?", &reply));
}

// The root does not exist yet: the server also makes the directories.
TEST_F(CommonIPCServerTest, LongSocketPathsAreCutAt107Characters) {
  std::string long_root = root() + "/" + std::string(100, 'd');
  setenv("BEXO_ROOT", long_root.c_str(), 1);
  bexo::ResetProductRootForTesting();
  std::string cut = (long_root + "/var/bexo/port.7401").substr(0, 107);
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  ASSERT_TRUE(server.StartListening());
  struct stat st;
  ASSERT_EQ(lstat(cut.c_str(), &st), 0) << cut;
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  std::string reply;
  ASSERT_TRUE(IpcExchange(kPort, "long", &reply));
  EXPECT_EQ(reply, "[long]");
}

// Memory pressure: a serving thread that cannot be started costs only its
// connection, which is closed and logged; the listener goes on.
TEST_F(CommonIPCServerTest, ListenerOutlivesAFailedThreadStart) {
  bexo::SetIpcClientSecondForTesting(10);
  CaptureLog();
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  ASSERT_TRUE(server.StartListening());

  pthread_attr_t saved, huge;
  ASSERT_EQ(pthread_getattr_default_np(&saved), 0);
  pthread_attr_init(&huge);
  ASSERT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX & ~size_t{0xFFFFF}), 0);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);  // no new thread fits now
  int fd = SendRaw(std::string("\1\0\0\0a", 5));
  bool closed = fd >= 0 && PeerClosed(fd, 10);
  ASSERT_EQ(pthread_setattr_default_np(&saved), 0);
  pthread_attr_destroy(&huge);
  pthread_attr_destroy(&saved);
  EXPECT_TRUE(closed);
  if (fd >= 0) close(fd);

  std::string reply;
  ASSERT_TRUE(IpcExchange(kPort, "after", &reply));
  EXPECT_EQ(reply, "[after]");
  EXPECT_NE(Log().find("ERROR: IPC port 7401 cannot start a serving thread"), std::string::npos) << Log();
}

// At the limit a connection is closed at once and the debug log says so;
// once a serving thread is free, connections are served again.
TEST_F(CommonIPCServerTest, ServingThreadsAreCapped) {
  bexo::SetIpcClientSecondForTesting(10);
  CaptureLog();
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  server.SetServingThreadLimit(2);
  ASSERT_TRUE(server.StartListening());
  std::vector<int> held = {SendRaw(""), SendRaw("")};  // each holds a serving thread
  ASSERT_GE(held[0], 0);
  ASSERT_GE(held[1], 0);
  for (int i = 0; i < 3; ++i) {
    int refused = SendRaw(std::string("\1\0\0\0a", 5));
    ASSERT_GE(refused, 0);
    EXPECT_TRUE(PeerClosed(refused, 10));
    char byte;
    EXPECT_LE(read(refused, &byte, 1), 0) << "a refused connection gets no reply";
    close(refused);
  }
  std::string log = Log();
  EXPECT_NE(log.find("WARNING: IPC port 7401 refuses connections: 2 serving threads"), std::string::npos) << log;
  EXPECT_EQ(log.find("WARNING"), log.rfind("WARNING")) << "one warning per run of refusals\n" << log;

  close(held[0]);  // its thread ends with a failed read
  std::string reply;
  bool served = false;
  for (int i = 0; i < 500 && !served; ++i) {
    served = IpcExchange(kPort, "free", &reply);
    if (!served) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(served);
  EXPECT_EQ(reply, "[free]");
  close(held[1]);
}

// A client that never reads its reply: the serving thread gives up after the
// read's silence budget (95 client seconds; 10 ms each here) and closes.
TEST_F(CommonIPCServerTest, AnUnreadReplyIsAbandonedAfterTheSilenceBudget) {
  bexo::SetIpcClientSecondForTesting(10);
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Large);
  ASSERT_TRUE(server.StartListening());
  int fd = SendRaw(std::string("\1\0\0\0a", 5));
  ASSERT_GE(fd, 0);
  auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(PeerClosed(fd, 20)) << "the serving thread still waits in write";
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  size_t total = 0;
  char buffer[65536];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) total += n;
  EXPECT_LT(total, 4 + kLargeReply);
  close(fd);
}

}  // namespace
