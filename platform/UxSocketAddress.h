// UxSocketAddress and UxSocketHostAddress: a socket address as text, and the
// list of addresses a host name resolves to (getaddrinfo, one entry per
// address: stream sockets only, so no address repeats per socket type).
//
// Thread safety: value types; resolution is reentrant.
#pragma once

#include <sys/socket.h>

#include <vector>

#include "bexo_export.h"

class BEXO_EXPORT UxSocketAddress {
 public:
  UxSocketAddress(const struct sockaddr* address, socklen_t length);

  // The address as text ("192.0.2.1", "2001:db8::1"); with `with_port`
  // followed by ":PORT" (IPv6 then in brackets). Returns `buffer`, or null
  // when the address family is unknown or the text does not fit in `size`.
  const char* toString(bool with_port, char* buffer, int size) const;

 private:
  struct sockaddr_storage address_;
  socklen_t length_;
};

class BEXO_EXPORT UxSocketHostAddress {
 public:
  // Resolves `host` (a name or a numeric address); an unknown host gives an
  // empty list, see error() for the reason.
  explicit UxSocketHostAddress(const char* host);

  int size() const { return static_cast<int>(addresses_.size()); }
  const UxSocketAddress& operator[](int index) const { return addresses_[index]; }
  // 0 when resolution succeeded, else the getaddrinfo error (gai_strerror).
  int error() const { return error_; }

 private:
  std::vector<UxSocketAddress> addresses_;
  int error_;
};
