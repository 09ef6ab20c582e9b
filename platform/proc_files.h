// Access to the Linux /proc file system. Every reader of /proc goes through
// these functions, so that tests can point them at a fake tree of files.
//
// Thread safety: all functions may be called from any thread; the test seam
// must be set before other threads read /proc.
#pragma once

#include <dirent.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "bexo_export.h"

namespace bexo {

// Largest number of bytes one ReadProcFile call takes from a file.
constexpr size_t kProcReadMax = 4095;

// The location of `relative` ("stat", "1234/statm") under the /proc root.
BEXO_EXPORT std::string ProcPath(const char* relative);

// Reads `relative` with one read() call of at most min(size - 1, 4095) bytes
// and NUL-terminates the buffer. Returns the number of bytes read, or -1 with
// errno set.
BEXO_EXPORT ssize_t ReadProcFile(const char* relative, char* buffer, size_t size);

// fopen(path, "r") of a /proc file (the mount table); null with errno set.
BEXO_EXPORT FILE* OpenProcFile(const char* relative);

// stat of a /proc entry; 0, or -1 with errno set.
BEXO_EXPORT int StatProcEntry(const char* relative, struct stat* st);

// opendir of the /proc root itself; null with errno set.
BEXO_EXPORT DIR* OpenProcDirectory();

// Test seam: `root` replaces "/proc" (for example a temp dir holding "stat",
// "meminfo" and "<pid>/statm"); an empty string restores "/proc".
BEXO_EXPORT void SetProcRootForTesting(const std::string& root);

}  // namespace bexo
