// "bexo ipc serve" and "bexo ipc send" as two processes talking over a port.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "ipc_test_util.h"
#include "temp_root.h"

namespace {

constexpr int kPort = 7601;

class IpcCliTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    serve_output_ = root() + "/serve.out";
    server_ = fork();
    ASSERT_GE(server_, 0);
    if (server_ == 0) {
      int out = open(serve_output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(out, 1);
      dup2(out, 2);
      close(out);
      execl(BEXO_CLI_PATH, BEXO_CLI_PATH, "ipc", "serve", std::to_string(kPort).c_str(), nullptr);
      _exit(127);
    }
    // The server is up once an exchange succeeds (connecting fails at once before that).
    std::string reply;
    for (int i = 0; i < 500 && !bexo_test::IpcExchange(kPort, "", &reply); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  void TearDown() override {
    if (server_ > 0) StopServer();
    TempRootTest::TearDown();
  }

  int StopServer() {
    kill(server_, SIGTERM);
    int status = 0;
    EXPECT_EQ(waitpid(server_, &status, 0), server_);
    server_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  int Send(const std::string& arguments, std::string* output) {
    return bexo_test::RunCommand(std::string(BEXO_CLI_PATH) + " ipc send " + arguments + " 2>&1", output);
  }

  pid_t server_ = -1;
  std::string serve_output_;
};

TEST_F(IpcCliTest, ValidRequestsGetTheirDumpOthersAnEcho) {
  struct Case {
    std::string command;  // what feeds "bexo ipc send PORT ..."
    std::string reply;
  };
  const std::string send = std::string(BEXO_CLI_PATH) + " ipc send " + std::to_string(kPort);
  const Case cases[] = {
      {"printf 'V1\\r\\nLOOKUP\\r\\nurl:http://a:81/\\r\\n' | " + send + " -",
       "Version:1\nType:LOOKUP\nurl:http://a:81/\n"},
      {send + " 'hello there'", "hello there"},
      {"printf 'V2\\r\\nX\\r\\n' | " + send + " -", "V2\r\nX\r\n"},
      {"printf 'cut\\000here' | " + send + " -", "cut"},
      {send, ""},
  };
  for (const Case& c : cases) {
    std::string output;
    EXPECT_EQ(bexo_test::RunCommand(c.command, &output), 0) << c.command;
    EXPECT_EQ(output, c.reply) << c.command;
  }
}

TEST_F(IpcCliTest, ServerShowsRequestsAndStopsOnSigterm) {
  std::string output;
  ASSERT_EQ(Send(std::to_string(kPort) + " first", &output), 0);
  EXPECT_EQ(StopServer(), 0);
  std::string shown = bexo_test::ReadFile(serve_output_);
  EXPECT_NE(shown.find("first\n"), std::string::npos) << shown;
}

TEST_F(IpcCliTest, FailuresHaveExitCodes) {
  std::string output;
  EXPECT_EQ(Send(std::to_string(kPort + 1) + " x", &output), 1);
  EXPECT_EQ(output, "bexo: cannot send to port " + std::to_string(kPort + 1) + "\n");
  EXPECT_EQ(Send("seven x", &output), 2);
  EXPECT_EQ(Send(std::to_string(kPort) + " a b", &output), 2);
  EXPECT_EQ(bexo_test::RunCommand(std::string(BEXO_CLI_PATH) + " ipc serve 2>/dev/null", &output), 2);
}

}  // namespace
