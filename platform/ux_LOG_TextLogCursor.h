// ux_LOG_TextLogCursor: reads the entries of a structured text log in the
// order they were written: the rotated files oldest first, then the active
// file. At the end Next returns false; called again later it continues with
// what was written since, across rotations that happened meanwhile.
//
// A line that is not a well-formed entry (a fragment left by a killed writer,
// bad JSON, a line longer than the entry limit) is damaged. With
// `skip_damaged` the cursor counts and skips it, so damage costs only the
// damaged lines; without, Next throws a ux_EXCEPTION_base naming the file.
// A last line still without its line feed in the active file is taken as
// being written and waited for.
//
// Thread safety: one cursor belongs to one thread.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>

#include "bexo_export.h"
#include "ux_LOG_LogEntry.h"
#include "ux_UTIL_no_inadvertant_copies.h"

class BEXO_EXPORT ux_LOG_TextLogCursor : public ux_UTIL_no_inadvertant_copies {
 public:
  // DIRECTORY is a product path; `max_entry_bytes` 0 means the writers'
  // limit (1 MiB). Throws ux_EXCEPTION_base when the directory cannot be read.
  ux_LOG_TextLogCursor(const char* directory, const char* name, unsigned int max_entry_bytes,
                       bool skip_damaged);
  ~ux_LOG_TextLogCursor();

  bool Next(ux_LOG_LogEntry& entry);
  uint64_t GetDamagedCount() const { return damaged_; }

 private:
  static constexpr int64_t kActive = INT64_MAX;  // file_sequence_ of the active file

  bool OpenFileAfter(int64_t sequence);
  bool Advance();  // at the end of the open file: move on, or false at the log's end
  void Damaged(const char* what);
  void CloseFile();

  std::string directory_;
  std::string name_;
  std::string active_path_;
  size_t max_entry_bytes_;
  bool skip_damaged_;

  int fd_ = -1;
  int64_t file_sequence_ = 0;  // of the open file, or of the last one finished
  dev_t file_dev_ = 0;
  ino_t file_ino_ = 0;
  int64_t file_offset_ = 0;  // bytes read from the open file

  std::string buffer_;
  size_t begin_ = 0;  // first byte not yet consumed
  size_t scanned_ = 0;  // bytes from begin_ known to hold no line feed
  bool discarding_ = false;  // inside an over-long line
  uint64_t damaged_ = 0;
};
