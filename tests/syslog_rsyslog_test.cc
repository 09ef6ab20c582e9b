// Syslog messages as a real receiver parses them: rsyslogd, run with its own
// configuration on a socket under the test root, writes the fields it found.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <string>
#include <thread>

#include "temp_root.h"

namespace {

constexpr char kRsyslogd[] = "/usr/sbin/rsyslogd";

class RsyslogTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    StopReceiver();
    TempRootTest::TearDown();
  }

  // Starts rsyslogd on root/var/bexo/log.sock; it writes
  // "APP-NAME|PROCID|MSGID|MSG" per message to root/fields.txt.
  void StartReceiver() {
    const std::string conf = Path("/rsyslog.conf");
    bexo_test::WriteFile(
        conf, "global(workDirectory=\"" + root() + "\")\n"
              "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
              "input(type=\"imuxsock\" Socket=\"" + Socket() + "\" UseSpecialParser=\"off\" ParseHostname=\"on\")\n"
              "template(name=\"fields\" type=\"string\" string=\"%app-name%|%procid%|%msgid%|%msg%\\n\")\n"
              "*.* action(type=\"omfile\" file=\"" + Path("/fields.txt") + "\" template=\"fields\")\n");
    const std::string pid_file = Path("/rsyslogd.pid");
    const std::string output = Path("/rsyslogd.out");
    receiver_ = fork();
    ASSERT_GE(receiver_, 0);
    if (receiver_ == 0) {
      int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (fd >= 0) {
        dup2(fd, 1);
        dup2(fd, 2);
      }
      execl(kRsyslogd, "rsyslogd", "-n", "-f", conf.c_str(), "-i", pid_file.c_str(), nullptr);
      _exit(127);
    }
    for (int i = 0; i < 1000 && !bexo_test::FileExists(Socket()); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(bexo_test::FileExists(Socket())) << bexo_test::ReadFile(output);
  }

  // Waits until rsyslogd has written `lines` messages (a datagram still in
  // the socket when it stops is dropped), up to ten seconds.
  void WaitForMessages(size_t lines) {
    for (int i = 0; i < 1000; ++i) {
      const std::string fields = bexo_test::ReadFile(Path("/fields.txt"));
      if (static_cast<size_t>(std::count(fields.begin(), fields.end(), '\n')) >= lines) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  // Stops rsyslogd, which writes out what it received; returns that.
  std::string StopReceiver() {
    if (receiver_ <= 0) return "";
    kill(receiver_, SIGTERM);
    waitpid(receiver_, nullptr, 0);
    receiver_ = -1;
    return bexo_test::ReadFile(Path("/fields.txt"));
  }

  std::string Socket() const { return Path("/var/bexo/log.sock"); }

  pid_t receiver_ = -1;
};

// A program whose name has a blank, and one of 60 characters, send through
// `bexo syslog test`: rsyslog must find the whole cleaned name as APP-NAME
// (RFC 5424) or TAG (RFC 3164), and the pid and event where they belong.
TEST_F(RsyslogTest, ProgramNamesWithBlanksOrOverLengthStayOneField) {
  if (!bexo_test::FileExists(kRsyslogd)) GTEST_SKIP() << "rsyslogd is not installed";
  StartReceiver();
  const std::string long_name(60, 'n');
  const std::string programs[] = {"my prog", long_name};
  for (const char* format : {"rfc5424", "rfc3164"}) {
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[System-Event]\nsyslog_socket = " + Socket() + "\nsyslog_format = " + format + "\n");
    for (const std::string& program : programs) {
      const std::string link = Path("/" + program);
      unlink(link.c_str());
      ASSERT_EQ(symlink(BEXO_CLI_PATH, link.c_str()), 0);
      std::string out;
      ASSERT_EQ(bexo_test::RunCommand("'" + link + "' syslog test 7 hello", &out), 0) << out;
    }
  }
  WaitForMessages(4);
  std::string fields = StopReceiver();
  const std::string cut(48, 'n');
  std::regex expected("my_prog\\|\\d+\\|7\\|hello\n" + cut + "\\|\\d+\\|7\\|hello\n" +
                      "my_prog\\|\\d+\\|-\\| ?\\[7\\] hello\n" + cut + "\\|\\d+\\|-\\| ?\\[7\\] hello\n");
  EXPECT_TRUE(std::regex_match(fields, expected)) << fields;
}

}  // namespace
