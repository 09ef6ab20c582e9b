// Framing of the daemons' request/reply messages over Unix-domain sockets.
// A frame is this 4-byte header, the body length in host byte order, followed
// by exactly that many body bytes: no magic, no version, no terminating NUL.
// One request frame and one reply frame cross each connection.
//
// Thread safety: the header is plain data; PrintSocketError may be called
// from any thread.
#pragma once

#include <stdint.h>

#include "bexo_export.h"

namespace BEXO {

struct CommonIPCMsgHeader {
  uint32_t length = 0;  // body bytes that follow the header
};
static_assert(sizeof(CommonIPCMsgHeader) == 4, "the header is 4 bytes on the wire");

// Prints "<what> : <errno> - <error text>" and a newline to standard output,
// for callers that want a console message after a failed socket call.
BEXO_EXPORT void PrintSocketError(const char* what);

}  // namespace BEXO
