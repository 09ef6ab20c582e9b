#include "syslog_sink.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <regex>

namespace bexo_test {

SyslogSink::SyslogSink(const std::string& socket_path) : path_(socket_path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) return;
  memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  unlink(path_.c_str());
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return;
  }
  int size = 1 << 20;  // room for every message of a burst
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  fd_ = fd;
}

SyslogSink::~SyslogSink() {
  if (fd_ >= 0) close(fd_);
  unlink(path_.c_str());
}

std::string SyslogSink::Receive(int timeout_seconds) {
  if (fd_ < 0) return "";
  pollfd waiting{fd_, POLLIN, 0};
  if (poll(&waiting, 1, timeout_seconds * 1000) <= 0) return "";
  char buffer[65536];
  ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
  return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
}

SyslogMessage ParseRfc5424(const std::string& datagram) {
  static const std::regex kShape(R"(<(\d+)>1 (\S+) (\S+) (\S+) (\S+) (\S+) -(?: ([\s\S]*))?)");
  SyslogMessage message;
  std::smatch m;
  if (!std::regex_match(datagram, m, kShape)) return message;
  message.priority = std::stoi(m[1]);
  message.timestamp = m[2];
  message.host = m[3];
  message.app = m[4];
  message.pid = m[5];
  message.msgid = m[6];
  message.text = m[7];
  message.valid = true;
  return message;
}

}  // namespace bexo_test
