// Bookkeeping for gather writes of the IPC client and server.
//
// Thread safety: reentrant.
#pragma once

#include <stddef.h>
#include <sys/socket.h>

namespace bexo {

// Drops the first `sent` bytes from the parts of `message`, so that the next
// sendmsg() continues where the last one stopped.
void SkipSentBytes(msghdr* message, size_t sent);

}  // namespace bexo
