// Test support for IPC: one exchange through the real client, and the raw
// socket calls of hand-made peers (blocking, exact lengths, no SIGPIPE).
#pragma once

#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "CommonIPCClient.h"

namespace bexo_test {

// Sends `request` to `port` and stores the reply; false when either leg failed.
inline bool IpcExchange(int port, const std::string& request, std::string* reply) {
  BEXO::CommonIPCClient client;
  client.SetupConnection(port);
  BEXO::CommonIPCMsgHeader header;
  header.length = static_cast<uint32_t>(request.size());
  if (!client.SendToServer(request.data(), header)) return false;
  char* body = nullptr;
  if (!client.ReceiveFromServer(&body, &header)) return false;
  reply->assign(body, header.length);
  delete[] body;
  return true;
}

inline sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// A blocking stream socket connected to `path`, or -1.
inline int ConnectUnix(const std::string& path) {
  sockaddr_un address = UnixAddress(path);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    fd = -1;
  }
  return fd;
}

inline bool SendAll(int fd, const void* data, size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = send(fd, next, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    next += n;
    size -= n;
  }
  return true;
}

inline bool ReadExactly(int fd, void* data, size_t size) {
  char* next = static_cast<char*>(data);
  while (size > 0) {
    ssize_t n = read(fd, next, size);
    if (n <= 0) return false;
    next += n;
    size -= n;
  }
  return true;
}

}  // namespace bexo_test
