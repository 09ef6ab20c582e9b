#include "SystemEventLog.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "syslog_sink.h"
#include "temp_root.h"

namespace {

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

TEST_F(SystemEventLogTest, Rfc5424OverTheLocalSocket) {
  bexo_test::SyslogSink sink(Path("/var/bexo/log.sock"));
  Configure("syslog_socket = " + Path("/var/bexo/log.sock") + "\nFacility = 16\n");
  EXPECT_EQ(SystemEventLogF(321638, 11, "%s=%d", "tk_x", 5), 0);
  EXPECT_EQ(SystemEventLog(42, 3), 0);
  std::string first = sink.Receive();
  std::regex shape(R"(<134>1 \d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d \S+ \S+ \d+ 321638 - tk_x=5)");
  EXPECT_TRUE(std::regex_match(first, shape)) << first;
  bexo_test::SyslogMessage second = bexo_test::ParseRfc5424(sink.Receive());
  EXPECT_TRUE(second.valid);
  EXPECT_EQ(second.priority, 16 * 8 + 3);
  EXPECT_EQ(second.msgid, "42");
  EXPECT_EQ(second.text, "");
}

TEST_F(SystemEventLogTest, Rfc3164Format) {
  bexo_test::SyslogSink sink(Path("/var/bexo/log.sock"));
  Configure("syslog_socket = " + Path("/var/bexo/log.sock") + "\nsyslog_format = rfc3164\n");
  EXPECT_EQ(SystemEventLogF(320018, 11, "%s", "virus"), 0);
  std::string message = sink.Receive();
  EXPECT_TRUE(std::regex_match(message, std::regex(R"(<14>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \S+ \S+\[\d+\]: \[320018\] virus)")))
      << message;
}

TEST_F(SystemEventLogTest, UdpToALoopbackReceiver) {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_GE(fd, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  Configure("syslog_transport = udp\nsyslog_host = 127.0.0.1\nsyslog_port = " +
            std::to_string(ntohs(address.sin_port)) + "\n");
  EXPECT_EQ(SystemEventLogF(7, 11, "%s", "hello"), 0);
  pollfd waiting{fd, POLLIN, 0};
  ASSERT_EQ(poll(&waiting, 1, 20000), 1);
  char buffer[4096];
  ssize_t n = recv(fd, buffer, sizeof buffer, 0);
  close(fd);
  bexo_test::SyslogMessage message = bexo_test::ParseRfc5424(std::string(buffer, n > 0 ? n : 0));
  EXPECT_EQ(message.msgid, "7");
  EXPECT_EQ(message.text, "hello");
}

TEST_F(SystemEventLogTest, TcpMessagesAreOctetCounted) {
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  Configure("syslog_transport = tcp\nsyslog_port = " + std::to_string(ntohs(address.sin_port)) + "\n");
  int connection = accept(listener, nullptr, nullptr);
  ASSERT_GE(connection, 0);
  EXPECT_EQ(SystemEventLogF(1, 11, "%s", "one"), 0);
  EXPECT_EQ(SystemEventLogF(2, 11, "%s", "two"), 0);
  std::string stream;
  char buffer[4096];
  while (stream.find("two") == std::string::npos) {
    pollfd waiting{connection, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 20000), 1);
    ssize_t n = recv(connection, buffer, sizeof buffer, 0);
    ASSERT_GT(n, 0);
    stream.append(buffer, n);
  }
  close(connection);
  close(listener);
  // "LEN SP MSG" twice, each length exact.
  size_t space = stream.find(' ');
  size_t first_length = std::stoul(stream.substr(0, space));
  std::string first = stream.substr(space + 1, first_length);
  EXPECT_EQ(bexo_test::ParseRfc5424(first).text, "one");
  std::string rest = stream.substr(space + 1 + first_length);
  space = rest.find(' ');
  EXPECT_EQ(std::stoul(rest.substr(0, space)), rest.size() - space - 1);
  EXPECT_EQ(bexo_test::ParseRfc5424(rest.substr(space + 1)).text, "two");
}

TEST_F(SystemEventLogTest, NoReceiverIsAFailure) {
  Configure("syslog_socket = " + Path("/var/bexo/nobody.sock") + "\n");
  EXPECT_EQ(SystemEventLogF(1, 11, "%s", "lost"), -1);
}

}  // namespace
