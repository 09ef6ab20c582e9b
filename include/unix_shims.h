// Shims with platform-style names for code written for another system.
//
// Thread safety: as the calls they wrap (errno is per thread).
#pragma once

#include "bexo_export.h"

// The calling thread's errno.
BEXO_EXPORT int GetLastError();
BEXO_EXPORT int WSAGetLastError();

// Sleeps milliseconds / 1000 whole seconds: the remainder is dropped, so a
// request under one second returns at once.
BEXO_EXPORT void Sleep(unsigned long milliseconds);
