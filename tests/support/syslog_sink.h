// Test support: a syslog receiver on a Unix datagram socket bound under the
// test root, and a parser of the RFC 5424 messages the event service sends.
#pragma once

#include <string>

namespace bexo_test {

class SyslogSink {
 public:
  explicit SyslogSink(const std::string& socket_path);
  ~SyslogSink();
  SyslogSink(const SyslogSink&) = delete;
  SyslogSink& operator=(const SyslogSink&) = delete;

  bool ok() const { return fd_ >= 0; }
  // The next datagram, waiting up to `timeout_seconds`; "" when none came.
  std::string Receive(int timeout_seconds = 20);

 private:
  std::string path_;
  int fd_ = -1;
};

// The parts of "<PRI>1 TIMESTAMP HOST APP PID MSGID - MSG".
struct SyslogMessage {
  bool valid = false;
  int priority = -1;
  std::string timestamp, host, app, pid, msgid, text;
};
SyslogMessage ParseRfc5424(const std::string& datagram);

}  // namespace bexo_test
