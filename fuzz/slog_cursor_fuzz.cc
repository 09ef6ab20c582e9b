// The structured log cursor over damaged files. The input is split at 0x1E
// bytes into up to four files: the rotated files of a log, oldest first, and
// its active file. The cursor must deliver exactly the lines that decode on
// their own (damage costs only the damaged lines; the unfinished last line of
// the active file waits), and each delivered entry must survive
// encode-decode-encode unchanged.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "product_path.h"
#include "ux_LOG_EntryJson.h"
#include "ux_LOG_LogFiles.h"
#include "ux_LOG_TextLogCursor.h"

namespace {

constexpr unsigned kMaxEntryBytes = 4096;  // small, so over-long lines are cheap to reach

void Check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "mismatch: %s\n", what);
    abort();
  }
}

const std::string& Dir() {
  static std::string dir = [] {
    // Under the product root when one is set: the cursor resolves its
    // directory as a product path.
    std::string pattern =
        (bexo::ProductRoot().empty() ? std::string("/tmp") : bexo::ProductRoot()) + "/slog-fuzz-XXXXXX";
    Check(mkdtemp(&pattern[0]) != nullptr, "mkdtemp");
    return pattern;
  }();
  return dir;
}

void Put(const std::string& path, const std::string& content) {
  FILE* file = fopen(path.c_str(), "wb");
  Check(file != nullptr, "open");
  fwrite(content.data(), 1, content.size(), file);
  fclose(file);
}

// Lines of `content` that decode on their own; a last line without a line
// feed never counts (torn in a rotated file, still being written in the
// active one).
size_t DecodableLines(const std::string& content) {
  size_t count = 0, start = 0;
  for (size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1) {
    std::string line = content.substr(start, end - start);
    ux_LOG_LogEntry entry;
    if (!line.empty() && line.size() <= kMaxEntryBytes && ux_LOG_DecodeEntry(line.data(), line.size(), &entry)) {
      ++count;
    }
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> parts(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0x1E && parts.size() < 4) {
      parts.emplace_back();
    } else {
      parts.back() += static_cast<char>(data[i]);
    }
  }
  const std::string& dir = Dir();
  std::vector<std::string> paths;
  size_t expected = 0;
  for (size_t i = 0; i < parts.size(); ++i) {
    bool active = i + 1 == parts.size();
    paths.push_back(active ? ux_log_files::ActivePath(dir, "f")
                           : ux_log_files::RotatedPath(dir, "f", static_cast<int64_t>(i + 1)));
    Put(paths.back(), parts[i]);
    expected += DecodableLines(parts[i]);
  }

  size_t delivered = 0;
  ux_LOG_TextLogCursor cursor(dir.c_str(), "f", kMaxEntryBytes, true);
  ux_LOG_LogEntry entry;
  while (cursor.Next(entry)) {
    ++delivered;
    std::string once, twice;
    ux_LOG_EncodeEntry(entry, &once);
    std::string copy = once.substr(0, once.size() - 1);
    ux_LOG_LogEntry again;
    Check(ux_LOG_DecodeEntry(copy.data(), copy.size(), &again), "re-encoded entry decodes");
    ux_LOG_EncodeEntry(again, &twice);
    Check(once == twice, "encode-decode-encode");
  }
  Check(delivered == expected, "delivered lines");
  for (const std::string& path : paths) unlink(path.c_str());
  return 0;
}
