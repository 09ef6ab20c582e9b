// The socket address shared by the IPC client and server.
//
// Thread safety: reentrant.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

namespace bexo {

// Fills `address` with the Unix-domain path for `port`: "/var/bexo/port.<port>"
// under the product root, cut at 107 characters. Returns the length to pass to
// bind/connect: the path length plus the family field, no NUL counted.
socklen_t MakeIpcAddress(int port, sockaddr_un* address);

}  // namespace bexo
