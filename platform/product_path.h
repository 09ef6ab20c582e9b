// Product paths ("/etc/kvelo/...", "/var/bexo/...", "/usr/bexo/...") are
// resolved here: when the environment variable BEXO_ROOT is set, its value is
// prefixed, so that tests, benchmarks and trial runs never touch the real
// system directories. The variable is read once per process.
//
// Thread safety: all functions may be called from any thread.
#pragma once

#include <string>

#include "bexo_export.h"

namespace bexo {

// The value of BEXO_ROOT without trailing slashes, or "" when it is unset.
BEXO_EXPORT const std::string& ProductRoot();

// `path` with the product root prefixed. Relative paths and paths already
// under the root are returned unchanged, so resolving twice is harmless.
BEXO_EXPORT std::string ProductPath(const std::string& path);

// Creates the directories above `path` that are missing (mode 0775).
// Returns 0, or -1 with errno set.
BEXO_EXPORT int MakeParentDirectories(const std::string& path);

// Test seam: reads BEXO_ROOT again (tests point it at a fresh temp dir).
BEXO_EXPORT void ResetProductRootForTesting();

}  // namespace bexo
