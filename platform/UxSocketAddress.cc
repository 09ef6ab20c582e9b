#include "UxSocketAddress.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>


UxSocketAddress::UxSocketAddress(const struct sockaddr* address, socklen_t length) {
  memset(&address_, 0, sizeof address_);
  if (length > sizeof address_) length = sizeof address_;
  memcpy(&address_, address, length);
  length_ = length;
}

const char* UxSocketAddress::toString(bool with_port, char* buffer, int size) const {
  if (buffer == nullptr || size <= 0) return nullptr;
  char text[INET6_ADDRSTRLEN];
  int port;
  if (address_.ss_family == AF_INET) {
    const auto* v4 = reinterpret_cast<const struct sockaddr_in*>(&address_);
    if (inet_ntop(AF_INET, &v4->sin_addr, text, sizeof text) == nullptr) return nullptr;
    port = ntohs(v4->sin_port);
  } else if (address_.ss_family == AF_INET6) {
    const auto* v6 = reinterpret_cast<const struct sockaddr_in6*>(&address_);
    if (inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof text) == nullptr) return nullptr;
    port = ntohs(v6->sin6_port);
  } else {
    return nullptr;
  }
  int needed;
  if (!with_port) {
    needed = snprintf(buffer, size, "%s", text);
  } else if (address_.ss_family == AF_INET6) {
    needed = snprintf(buffer, size, "[%s]:%d", text, port);
  } else {
    needed = snprintf(buffer, size, "%s:%d", text, port);
  }
  if (needed < 0 || needed >= size) {
    buffer[0] = '\0';
    return nullptr;
  }
  return buffer;
}

UxSocketHostAddress::UxSocketHostAddress(const char* host) : error_(EAI_NONAME) {
  if (host == nullptr || host[0] == '\0') return;
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo* list = nullptr;
  error_ = getaddrinfo(host, nullptr, &hints, &list);
  if (error_ != 0) return;
  for (const struct addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    addresses_.emplace_back(entry->ai_addr, entry->ai_addrlen);
  }
  freeaddrinfo(list);
}
