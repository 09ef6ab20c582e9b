// The server in this process, spoken to through the real client.
#include "CommonIPCServer.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

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
std::string ReportSignalMask(std::string) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGINT) && sigismember(&mask, SIGTERM) ? "blocked" : "open";
}

class CommonIPCServerTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    bexo::SetIpcClientSecondForTesting(1000);
    TempRootTest::TearDown();
  }
  std::string SocketPath() const { return Path("/var/bexo/port." + std::to_string(kPort)); }
};

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

}  // namespace
