// Small helpers of the platform layer.
//
// Thread safety: all functions are reentrant.
#pragma once

#include <stddef.h>

#include "bexo_export.h"

// A bounded snprintf that always terminates a non-empty buffer. Returns the
// number of characters placed (less than `size`), or -1 on a format error.
BEXO_EXPORT int bexo_snprintf(char* buffer, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The byte value 0 to 255 of a hexadecimal pair, given as "%4F" or "4F"
// (either letter case); -1 when the two characters are not hexadecimal.
BEXO_EXPORT int hexto4u(const char* text);

// The product's installation directory: key "InstallPath" of section "Common"
// of "/etc/kvelo/morvane.ini", else "/usr/bexo/" (product root prefixed).
// Returns the length written, or -1 when it does not fit in `size`.
BEXO_EXPORT int ReadPath(char* buffer, int size);

// True when `path` ends in "/".
BEXO_EXPORT bool CheckPathLastSlash(const char* path);

// 0 when `path` opens for reading and is not a directory; otherwise the errno
// that says why (EISDIR for a directory).
BEXO_EXPORT int ReadableFileError(const char* path);

// The configured time-zone name, key "TimeZone" of section "Common" of
// "/etc/kvelo/morvane.ini"; the buffer is left empty when none is set (the
// system default applies) or when the name does not fit.
BEXO_EXPORT void GetTZOffset(char* buffer, int size);

// Reads exactly `count` decimal digits of `text` into `out`; false when any
// of them is not a digit. (For the platform's fixed-width date texts.)
bool ReadFixedDigits(const char* text, int count, int* out);
