#include "SystemEventLog.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "syslog_sink.h"
#include "temp_root.h"

namespace {

// A socket bound to an ephemeral loopback port; returns its descriptor.
int BindLoopback(int type, int* port) {
  int fd = socket(AF_INET, type, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (fd < 0) return -1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  *port = ntohs(address.sin_port);
  return fd;
}

// The next bytes on `fd`, waiting up to 20 s; "" when none came.
std::string ReceiveFrom(int fd) {
  pollfd waiting{fd, POLLIN, 0};
  char buffer[4096];
  ssize_t n = poll(&waiting, 1, 20000) == 1 ? recv(fd, buffer, sizeof buffer, 0) : 0;
  return std::string(buffer, n > 0 ? static_cast<size_t>(n) : 0);
}

class SystemEventLogTest : public bexo_test::TempRootTest {
 protected:
  void Configure(const std::string& lines) {
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[System-Event]\n" + lines);
    ASSERT_EQ(InitializeSystemEventLog(), 0);
  }
  void TearDown() override {
    DeinitializeSystemEventLog();
    TempRootTest::TearDown();
  }
};

TEST_F(SystemEventLogTest, LocalSocketFormatsAndFailure) {
  bexo_test::SyslogSink sink(Path("/var/bexo/log.sock"));
  Configure("syslog_socket = " + Path("/var/bexo/log.sock") + "\nFacility = 16\n");
  EXPECT_EQ(SystemEventLogF(321638, 11, "%s=%d", "tk_x", 5), 0);
  EXPECT_EQ(SystemEventLog(42, 3), 0);
  std::string first = sink.Receive();
  std::regex rfc5424(R"(<134>1 \d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d \S+ \S+ \d+ 321638 - tk_x=5)");
  EXPECT_TRUE(std::regex_match(first, rfc5424)) << first;
  std::string second = sink.Receive();
  EXPECT_TRUE(std::regex_match(second, std::regex(R"(<131>1 \S+ \S+ \S+ \d+ 42 -)"))) << second;

  Configure("syslog_socket = " + Path("/var/bexo/log.sock") + "\nsyslog_format = rfc3164\n");
  EXPECT_EQ(SystemEventLogF(320018, 11, "%s", "virus"), 0);
  std::string message = sink.Receive();
  EXPECT_TRUE(std::regex_match(message, std::regex(R"(<14>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \S+ \S+\[\d+\]: \[320018\] virus)")))
      << message;

  Configure("syslog_socket = " + Path("/var/bexo/nobody.sock") + "\n");
  EXPECT_EQ(SystemEventLogF(1, 11, "%s", "lost"), -1);
}

TEST_F(SystemEventLogTest, UdpToALoopbackReceiver) {
  int port = 0;
  int fd = BindLoopback(SOCK_DGRAM, &port);
  ASSERT_GE(fd, 0);
  Configure("syslog_transport = udp\nsyslog_host = 127.0.0.1\nsyslog_port = " + std::to_string(port) + "\n");
  EXPECT_EQ(SystemEventLogF(7, 11, "%s", "hello"), 0);
  std::string datagram = ReceiveFrom(fd);
  close(fd);
  bexo_test::SyslogMessage message = bexo_test::ParseRfc5424(datagram);
  EXPECT_EQ(message.msgid + "|" + message.text, "7|hello");
}

// "LEN SP MSG" per message, each length exact.
TEST_F(SystemEventLogTest, TcpMessagesAreOctetCounted) {
  int port = 0;
  int listener = BindLoopback(SOCK_STREAM, &port);
  ASSERT_GE(listener, 0);
  ASSERT_EQ(listen(listener, 1), 0);
  Configure("syslog_transport = tcp\nsyslog_port = " + std::to_string(port) + "\n");
  int connection = accept(listener, nullptr, nullptr);
  ASSERT_GE(connection, 0);
  EXPECT_EQ(SystemEventLogF(1, 11, "%s", "one"), 0);
  EXPECT_EQ(SystemEventLogF(2, 11, "%s", "two"), 0);
  std::string stream;
  while (stream.find("two") == std::string::npos) {
    std::string more = ReceiveFrom(connection);
    ASSERT_FALSE(more.empty());
    stream += more;
  }
  close(connection);
  close(listener);
  for (const char* expected : {"one", "two"}) {
    size_t space = stream.find(' ');
    size_t length = std::stoul(stream.substr(0, space));
    EXPECT_EQ(bexo_test::ParseRfc5424(stream.substr(space + 1, length)).text, expected);
    stream.erase(0, space + 1 + length);
  }
  EXPECT_EQ(stream, "");
}

// The program name reaches syslog as one field of printable US-ASCII without
// blanks, at most 48 characters, in both formats.
TEST_F(SystemEventLogTest, ProgramNameBecomesOneSafeField) {
  struct Case {
    const char* program;
    const char* rfc5424;
    const char* rfc3164;
  };
  const std::string long_name(60, 'a');
  const std::string cut(48, 'a');
  const Case cases[] = {
      {"gatewayd", "gatewayd", "gatewayd"},
      {"my prog", "my_prog", "my_prog"},
      {"tab\tand\x7f", "tab_and_", "tab_and_"},
      {"caf\xc3\xa9", "caf__", "caf__"},
      {"a:b[1]", "a:b[1]", "a_b_1_"},
      {"", "-", "-"},
      {long_name.c_str(), cut.c_str(), cut.c_str()},
  };
  const std::string socket = Path("/var/bexo/log.sock");
  bexo_test::SyslogSink sink(socket);
  char* saved = program_invocation_short_name;
  for (const Case& c : cases) {
    program_invocation_short_name = const_cast<char*>(c.program);
    Configure("syslog_socket = " + socket + "\n");
    EXPECT_EQ(SystemEventLogF(7, 11, "%s", "x"), 0);
    std::string datagram = sink.Receive();
    std::smatch m;
    EXPECT_TRUE(std::regex_match(datagram, m, std::regex(R"(<\d+>1 \S+ \S+ ([!-~]{1,48}) \d+ 7 - x)")))
        << datagram;
    EXPECT_EQ(m.size() > 1 ? m[1].str() : "", c.rfc5424) << datagram;

    Configure("syslog_socket = " + socket + "\nsyslog_format = rfc3164\n");
    EXPECT_EQ(SystemEventLogF(7, 11, "%s", "x"), 0);
    datagram = sink.Receive();
    EXPECT_TRUE(std::regex_match(datagram, m, std::regex(R"(<\d+>.{15} \S+ ([!-9;-Z\\^-~]{1,48})\[\d+\]: \[7\] x)")))
        << datagram;
    EXPECT_EQ(m.size() > 1 ? m[1].str() : "", c.rfc3164) << datagram;
  }
  program_invocation_short_name = saved;
}

}  // namespace
