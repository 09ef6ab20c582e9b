// The server in this process, spoken to through the real client.
#include "CommonIPCServer.h"

#include <errno.h>
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
std::string Throw(std::string request) {
  if (request == "boom") throw std::runtime_error("boom");
  return "fine";
}
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

struct HandlerCase {
  const char* name;
  BEXO::CommonIPCServer::Handler handler;
  std::string request;
  std::string reply;
};

void PrintTo(const HandlerCase& c, std::ostream* out) { *out << c.name; }

class CommonIPCServerHandlerTest : public CommonIPCServerTest,
                                   public ::testing::WithParamInterface<HandlerCase> {};

TEST_P(CommonIPCServerHandlerTest, AnswersWithTheHandlersResult) {
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(GetParam().handler);
  ASSERT_TRUE(server.StartListening());
  std::string reply = "unset";
  ASSERT_TRUE(IpcExchange(kPort, GetParam().request, &reply));
  EXPECT_EQ(reply, GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(
    Handlers, CommonIPCServerHandlerTest,
    ::testing::Values(HandlerCase{"Echo", Bracket, "V1\r\nPING\r\n", "[V1\r\nPING\r\n]"},
                      HandlerCase{"EmptyRequest", Bracket, "", "[]"},
                      HandlerCase{"RequestCutAtNul", Bracket, "abc\0def"s, "[abc]"},
                      HandlerCase{"EmptyReply", Empty, "x", ""},
                      HandlerCase{"ReplyCutAtNul", CutAtNul, "x", "kept"},
                      HandlerCase{"NoHandler", nullptr, "x", ""},
                      HandlerCase{"HandlerThrows", Throw, "boom", ""},
                      HandlerCase{"ServingThreadsBlockStopSignals", ReportSignalMask, "", "blocked"}),
    [](const ::testing::TestParamInfo<HandlerCase>& param) { return std::string(param.param.name); });

TEST_F(CommonIPCServerTest, KeepsServingAfterAHandlerThrew) {
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Throw);
  ASSERT_TRUE(server.StartListening());
  std::string reply;
  ASSERT_TRUE(IpcExchange(kPort, "boom", &reply));
  ASSERT_TRUE(IpcExchange(kPort, "calm", &reply));
  EXPECT_EQ(reply, "fine");
}

TEST_F(CommonIPCServerTest, SocketFileIsWorldWritableAndItsDirectoryIsMade) {
  ASSERT_EQ(rmdir(Path("/var/bexo").c_str()), 0);
  BEXO::CommonIPCServer server(kPort);
  ASSERT_TRUE(server.StartListening());
  struct stat st;
  ASSERT_EQ(lstat(SocketPath().c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0666u);
}

TEST_F(CommonIPCServerTest, StaleFileAtThePathIsReplaced) {
  bexo_test::WriteFile(SocketPath(), "left over");
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  ASSERT_TRUE(server.StartListening());
  std::string reply;
  ASSERT_TRUE(IpcExchange(kPort, "a", &reply));
  EXPECT_EQ(reply, "[a]");
}

TEST_F(CommonIPCServerTest, StartingTwiceIsRefused) {
  BEXO::CommonIPCServer server(kPort);
  ASSERT_TRUE(server.StartListening());
  EXPECT_FALSE(server.StartListening());
}

TEST_F(CommonIPCServerTest, StartFailsWhenTheSocketCannotBeBound) {
  ASSERT_EQ(rmdir(Path("/var/bexo").c_str()), 0);
  bexo_test::WriteFile(Path("/var/bexo"), "a file where the directory belongs");
  BEXO::CommonIPCServer server(kPort);
  EXPECT_EQ(server.CreateSocket(), -1);
  EXPECT_FALSE(server.StartListening());
}

TEST_F(CommonIPCServerTest, StoppingANeverStartedServerDoesNothing) {
  BEXO::CommonIPCServer server(kPort);
  server.StopListening();
  server.StopListening();
  EXPECT_FALSE(bexo_test::FileExists(SocketPath()));
}

TEST_F(CommonIPCServerTest, StoppedServerKeepsItsSocketUntilClosed) {
  bexo::SetIpcClientSecondForTesting(5);
  BEXO::CommonIPCServer server(kPort);
  server.SetHandler(Bracket);
  ASSERT_TRUE(server.StartListening());
  server.StopListening();
  EXPECT_TRUE(bexo_test::FileExists(SocketPath()));

  // Still open: the connection is queued but no longer served.
  BEXO::CommonIPCClient queued;
  queued.SetupConnection(kPort);
  BEXO::CommonIPCMsgHeader header;
  EXPECT_TRUE(queued.SendToServer("", header));
  char* reply = nullptr;
  EXPECT_FALSE(queued.ReceiveFromServer(&reply, &header));

  server.CloseSocket();
  std::string ignored;
  EXPECT_FALSE(IpcExchange(kPort, "late", &ignored));
}

TEST_F(CommonIPCServerTest, DestroyedServerRefusesConnections) {
  {
    BEXO::CommonIPCServer server(kPort);
    ASSERT_TRUE(server.StartListening());
  }
  bexo::SetIpcClientSecondForTesting(10000);  // a retry sleep would take 10 s
  std::string ignored;
  EXPECT_FALSE(IpcExchange(kPort, "anyone?", &ignored));
}

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

TEST(PrintSocketErrorTest, PrintsWhatErrnoAndItsText) {
  ::testing::internal::CaptureStdout();
  errno = ENOENT;
  BEXO::PrintSocketError("connect");
  fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "connect : 2 - No such file or directory\n");
}

}  // namespace
