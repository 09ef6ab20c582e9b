// Where a structured text log keeps its files, shared by the writer side
// (ux_LOG_TextLog), the cursor and the clean-up:
//
//   DIR/NAME.log            the active file, appended to
//   DIR/NAME.NNNNNNNNNN.log a rotated file; NNNNNNNNNN grows by one per rotation
//   DIR/NAME.lock           the lock file of synchronisation level 2; it also
//                           holds the number of the last rotation
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace ux_log_files {

constexpr size_t kMaxEntryBytes = 1 << 20;  // longest line written or read
constexpr char kDefaultName[] = "ux_log";    // the name of a log opened without one

struct RotatedFile {
  int64_t sequence;
  std::string path;
};

// A usable base name: `name`, or kDefaultName when null or empty; "" when it
// contains a slash.
std::string BaseName(const char* name);
std::string ActivePath(const std::string& directory, const std::string& name);
std::string LockPath(const std::string& directory, const std::string& name);
std::string RotatedPath(const std::string& directory, const std::string& name, int64_t sequence);

// The rotated files of the log, oldest (lowest number) first.
std::vector<RotatedFile> ListRotated(const std::string& directory, const std::string& name);

}  // namespace ux_log_files
