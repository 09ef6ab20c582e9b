// Host-and-port join of the socket helpers: "host:port", with an IPv6
// literal bracketed ("[::1]:8080"); the host alone when port is 0 or less.
//
// Thread safety: reentrant.
#pragma once

#include <stddef.h>

#include "bexo_export.h"

// Writes at most size - 1 bytes and a terminator; returns the length written.
BEXO_EXPORT size_t JoinHostPort(const char* host, int port, char* buffer, size_t size);
