// Service control against fake init scripts, uihelper and testdb.sh under the
// temp root, run by real shells in real child processes.
#include "bexoservice.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::WriteFile;

using bexo_test::WriteScript;

class ServiceTest : public bexo_test::TempRootTest {
 protected:
  // An init script that logs its arguments and whether descriptor 50 reached it.
  void InitScript(const std::string& name) {
    WriteScript(Path("/usr/bexo/" + name),
           "fd=closed; [ -e /proc/$$/fd/50 ] && fd=inherited\n"
           "echo \"$(basename $0) $* $fd\" >> " +
               Path("/calls") + "\n");
  }
  std::string Calls() { return ReadFile(Path("/calls")); }
};

// "fd -> target" lines of our child once it has become `program`.
std::string ChildDescriptors(const char* program) {
  std::string pid;
  for (int attempt = 0; attempt < 500 && pid.empty(); ++attempt, usleep(2000)) {
    bexo_test::RunCommand("pgrep -x -P " + std::to_string(getpid()) + " " + program, &pid);
  }
  if (pid.empty()) return "child not found";
  std::map<int, std::string> fds;
  std::error_code ignored;
  for (const auto& fd : std::filesystem::directory_iterator(
           "/proc/" + pid.substr(0, pid.find('\n')) + "/fd", ignored)) {
    fds[std::stoi(fd.path().filename().string())] =
        std::filesystem::read_symlink(fd.path(), ignored).string();
  }
  std::string text;
  for (const auto& fd : fds) text += std::to_string(fd.first) + " -> " + fd.second + "\n";
  return text;
}

TEST_F(ServiceTest, ChildKeepsOnlyTheStandardDescriptors) {
  const int file = open(Path("/etc/kvelo/held").c_str(), O_CREAT | O_WRONLY, 0600);
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(file, 0);
  ASSERT_GE(sock, 0);
  ASSERT_EQ(dup2(file, 200), 200);
  std::thread run([] { EXPECT_EQ(system_with_fd_closed("exec sleep 1"), 0); });
  const std::string fds = ChildDescriptors("sleep");
  run.join();
  const bool console = access("/dev/console", W_OK) == 0;
  EXPECT_EQ(
      fds, console ? "0 -> /dev/null\n1 -> /dev/console\n2 -> /dev/console\n" : "0 -> /dev/null\n");
  close(200);
  close(file);
  close(sock);
}

TEST_F(ServiceTest, StatusWords) {
  const struct {
    std::string command;
    bool exited;
    int code;
  } kCases[] = {
      {"exit 0", true, 0},
      {"exit 3", true, 3},
      {Path("/usr/bexo/missing-script") + " start", true, 127},
      {"kill -KILL $$", false, SIGKILL},
  };
  for (const auto& c : kCases) {
    const int status = system_with_fd_closed(c.command.c_str());
    EXPECT_EQ(WIFEXITED(status), c.exited) << c.command;
    EXPECT_EQ(c.exited ? WEXITSTATUS(status) : WTERMSIG(status), c.code) << c.command;
  }
}

TEST_F(ServiceTest, StartAndStopRunTheInitScript) {
  InitScript("S99KVwmid");
  for (const char* install : {"", "/usr/bexo", "/usr/bexo/"}) {
    WriteFile(Path("/etc/kvelo/morvane.ini"),
              std::string("[Common]\nInstallPath=") + install + "\n");
    std::filesystem::remove(Path("/calls"));
    EXPECT_EQ(StartBEXOService("S99KVwmid"), 0) << install;
    EXPECT_EQ(StopBEXOService("S99KVwmid"), 0) << install;
    EXPECT_EQ(Calls(), "S99KVwmid start closed\nS99KVwmid stop closed\n") << install;
  }
}

TEST_F(ServiceTest, SignalConfigChangeChoosesHowToRun) {
  for (const char* name : {"s99kvWMID", "S99KVhaagent", "S10KVproxy"}) InitScript(name);
  WriteScript(Path("/usr/bexo/AdminUI/uihelper"), "echo \"uihelper $1\" >> " + Path("/calls") + "\n");
  ASSERT_EQ(dup2(open("/dev/null", O_RDONLY), 50), 50);
  const std::string install = Path("/usr/bexo/");
  const struct {
    const char* script;
    std::string call;
  } kCases[] = {
      {"S10KVproxy", "S10KVproxy reload closed\n"},
      {"s99kvWMID", "s99kvWMID reload inherited\n"},  // names compare without case
      {"S99KVhaagent", "uihelper " + install + "S99KVhaagent reload > /dev/null 2>&1\n"},
  };
  for (const auto& c : kCases) {
    std::filesystem::remove(Path("/calls"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(signalConfigChange(c.script, "reload"), 0) << c.script;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "cmdstr: " + install + c.script + " reload > /dev/null 2>&1\n");
    EXPECT_EQ(Calls(), c.call) << c.script;
  }
  close(50);
}

TEST_F(ServiceTest, TestdbAnswers) {
  const std::string kGeneric =
      "<connectdb><error_msg>Generic error.</error_msg><error_no>0</error_no></connectdb>";
  const std::string result_file =
      Path("/etc/kvelo/morvane.ini") + "testdbresult." + std::to_string(getpid());
  const struct {
    const char* body;  // empty: no script at all
    int mode;
    std::string answer;
  } kCases[] = {
      {"echo 'junk<connectdb><ok>1</ok></connectdb>tail'", 2, "<connectdb><ok>1</ok></connectdb>"},
      {"echo '<connectdb><ok>1</ok>'", 2, kGeneric},
      {"echo '</connectdb><connectdb>'", 2, kGeneric},
      {"", 2, kGeneric},
      {"printf '<connectdb>a\\377</connectdb>'", 2, kGeneric},
      // Mode 1 writes "testdb.sh 1>FILE": the 1 is a redirection, not an argument.
      {"echo \"<connectdb>$#:$*</connectdb>\"", 1, "<connectdb>0:</connectdb>"},
      {"echo \"<connectdb>$#:$*</connectdb>\"", 4, "<connectdb>4:4 host db user</connectdb>"},
      {"echo \"<connectdb>$(readlink /proc/$$/fd/1)</connectdb>\"", 2,
       "<connectdb>" + result_file + "</connectdb>"},
  };
  for (const auto& c : kCases) {
    std::filesystem::remove(Path("/etc/kvelo/bin/testdb.sh"));
    if (*c.body) WriteScript(Path("/etc/kvelo/bin/testdb.sh"), std::string(c.body) + "\n");
    char out[2048];
    memset(out, 'z', sizeof out);
    call_testdb(out, sizeof out, c.mode, "host", "db", "user");
    EXPECT_EQ(std::string(out), c.answer) << c.body;
    EXPECT_EQ(out[sizeof out - 1], '\0');
    EXPECT_FALSE(bexo_test::FileExists(result_file));
  }
}

}  // namespace
