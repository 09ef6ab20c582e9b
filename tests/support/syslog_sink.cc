#include "syslog_sink.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sstream>

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
  SyslogMessage message;
  if (datagram.empty() || datagram[0] != '<') return message;
  size_t close_angle = datagram.find('>');
  if (close_angle == std::string::npos || datagram.compare(close_angle + 1, 2, "1 ") != 0) return message;
  message.priority = atoi(datagram.substr(1, close_angle - 1).c_str());
  size_t position = close_angle + 3;
  std::string* parts[] = {&message.timestamp, &message.host, &message.app, &message.pid, &message.msgid};
  for (std::string* part : parts) {
    size_t space = datagram.find(' ', position);
    if (space == std::string::npos) return message;
    *part = datagram.substr(position, space - position);
    position = space + 1;
  }
  if (datagram.compare(position, std::string::npos, "-") == 0) {
    message.valid = true;
    return message;
  }
  if (datagram.compare(position, 2, "- ") != 0) return message;
  message.text = datagram.substr(position + 2);
  message.valid = true;
  return message;
}

}  // namespace bexo_test
