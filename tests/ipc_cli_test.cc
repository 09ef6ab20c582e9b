// "bexo ipc serve" and "bexo ipc send" as two processes talking over a port.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "forked_children.h"
#include "ipc_test_util.h"
#include "temp_root.h"

namespace {

constexpr int kPort = 7601;

using IpcCliTest = bexo_test::TempRootTest;

// Valid requests get their dump, others an echo; the server shows what came
// in and stops on SIGTERM.
TEST_F(IpcCliTest, SendAndServe) {
  const std::string serve_output = root() + "/serve.out";
  pid_t server = fork();
  ASSERT_GE(server, 0);
  if (server == 0) {
    int out = open(serve_output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(out, 2);
    execl(BEXO_CLI_PATH, BEXO_CLI_PATH, "ipc", "serve", std::to_string(kPort).c_str(), nullptr);
    _exit(127);
  }
  // The server is up once an exchange succeeds (connecting fails at once before that).
  std::string reply;
  for (int i = 0; i < 500 && !bexo_test::IpcExchange(kPort, "", &reply); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  const std::string send = std::string(BEXO_CLI_PATH) + " ipc send ";
  const std::string port = std::to_string(kPort) + " ";
  const std::string other = std::to_string(kPort + 1);
  const struct {
    std::string command;
    int status;
    std::string output;
  } cases[] = {
      {"printf 'V1\\r\\nLOOKUP\\r\\nurl:http://a:81/\\r\\n' | " + send + port + "-", 0,
       "Version:1\nType:LOOKUP\nurl:http://a:81/\n"},
      {send + port + "'hello there'", 0, "hello there"},
      {"printf 'V2\\r\\nX\\r\\n' | " + send + port + "-", 0, "V2\r\nX\r\n"},
      {"printf 'cut\\000here' | " + send + port + "-", 0, "cut"},
      {send + port, 0, ""},
      {send + other + " x 2>&1", 1, "bexo: cannot send to port " + other + "\n"},
      {send + "seven x 2>/dev/null", 2, ""},
      {send + port + "a b 2>/dev/null", 2, ""},
      {std::string(BEXO_CLI_PATH) + " ipc serve 2>/dev/null", 2, ""},
  };
  for (const auto& c : cases) {
    std::string output;
    EXPECT_EQ(bexo_test::RunCommand(c.command, &output), c.status) << c.command;
    EXPECT_EQ(output, c.output) << c.command;
  }

  kill(server, SIGTERM);
  EXPECT_EQ(bexo_test::WaitExit(server), 0);
  std::string shown = bexo_test::ReadFile(serve_output);
  EXPECT_NE(shown.find("hello there\n"), std::string::npos) << shown;
}

}  // namespace
