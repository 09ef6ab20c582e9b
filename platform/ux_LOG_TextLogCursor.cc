#include "ux_LOG_TextLogCursor.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "product_path.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_EntryJson.h"
#include "ux_LOG_LogFiles.h"

namespace {

constexpr size_t kReadChunk = 64 * 1024;

}  // namespace

ux_LOG_TextLogCursor::ux_LOG_TextLogCursor(const char* directory, const char* name,
                                           unsigned int max_entry_bytes, bool skip_damaged)
    : directory_(bexo::ProductPath(directory ? directory : "")),
      name_(ux_log_files::BaseName(name)),
      max_entry_bytes_(max_entry_bytes ? max_entry_bytes : ux_log_files::kMaxEntryBytes),
      skip_damaged_(skip_damaged) {
  while (directory_.size() > 1 && directory_.back() == '/') directory_.pop_back();
  struct stat info;
  if (name_.empty() || stat(directory_.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    throw ux_EXCEPTION_base("ux_LOG_TextLogCursor: cannot read log " + name_ + " in " + directory_);
  }
  active_path_ = ux_log_files::ActivePath(directory_, name_);
}

ux_LOG_TextLogCursor::~ux_LOG_TextLogCursor() { CloseFile(); }

void ux_LOG_TextLogCursor::CloseFile() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

// Opens the first file written after rotated file number `sequence`: a later
// rotated file, else the active one. False when none exists yet.
bool ux_LOG_TextLogCursor::OpenFileAfter(int64_t sequence) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::vector<ux_log_files::RotatedFile> rotated = ux_log_files::ListRotated(directory_, name_);
    int64_t next_sequence = kActive;
    const std::string* path = &active_path_;
    for (const ux_log_files::RotatedFile& file : rotated) {
      if (file.sequence > sequence) {
        next_sequence = file.sequence;
        path = &file.path;
        break;
      }
    }
    int fd = open(path->c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      if (errno != ENOENT) {
        throw ux_EXCEPTION_base("ux_LOG_TextLogCursor: cannot open " + *path + ": " + strerror(errno));
      }
      if (next_sequence == kActive) return false;
      continue;  // removed meanwhile
    }
    // The active file may have been rotated between the listing and the
    // open; then the rotated one must be read first.
    if (next_sequence == kActive) {
      std::vector<ux_log_files::RotatedFile> again = ux_log_files::ListRotated(directory_, name_);
      if (!again.empty() && again.back().sequence > sequence) {
        close(fd);
        continue;
      }
    }
    struct stat info;
    if (fstat(fd, &info) != 0) {
      int error = errno;
      close(fd);
      throw ux_EXCEPTION_base("ux_LOG_TextLogCursor: cannot read " + *path + ": " + strerror(error));
    }
    fd_ = fd;
    file_sequence_ = next_sequence;
    file_dev_ = info.st_dev;
    file_ino_ = info.st_ino;
    file_offset_ = 0;
    return true;
  }
  return false;
}

bool ux_LOG_TextLogCursor::Advance() {
  // Bytes appended after our last read come first (the file may have been
  // written and then rotated since).
  struct stat info;
  if (fstat(fd_, &info) == 0 && info.st_size > file_offset_) return true;
  int64_t finished = file_sequence_;
  if (file_sequence_ == kActive) {
    struct stat active;
    if (stat(active_path_.c_str(), &active) == 0 && active.st_dev == file_dev_ &&
        active.st_ino == file_ino_) {
      return false;  // still the newest file: the end for now
    }
    // Rotated away: find which number it got.
    finished = -1;
    for (const ux_log_files::RotatedFile& file : ux_log_files::ListRotated(directory_, name_)) {
      struct stat rotated;
      if (stat(file.path.c_str(), &rotated) == 0 && rotated.st_dev == file_dev_ &&
          rotated.st_ino == file_ino_) {
        finished = file.sequence;
      }
    }
    if (finished < 0) {
      // Rotated and already removed: what followed it is unknown; go on
      // with the newest file.
      finished = INT64_MAX - 1;
    }
    // Re-read the size: the last appends may have landed before the rename.
    if (fstat(fd_, &info) == 0 && info.st_size > file_offset_) return true;
  }
  if (begin_ < buffer_.size()) {
    if (!discarding_) Damaged("an unfinished last line");
  }
  buffer_.clear();
  begin_ = scanned_ = 0;
  discarding_ = false;
  CloseFile();
  file_sequence_ = finished;
  return OpenFileAfter(finished);
}

void ux_LOG_TextLogCursor::Damaged(const char* what) {
  ++damaged_;
  if (!skip_damaged_) {
    throw ux_EXCEPTION_base(std::string("ux_LOG_TextLogCursor: ") + what + " in log " + name_ +
                            " in " + directory_);
  }
}

bool ux_LOG_TextLogCursor::Next(ux_LOG_LogEntry& entry) {
  if (fd_ < 0 && !OpenFileAfter(file_sequence_)) return false;
  for (;;) {
    size_t pending = buffer_.size() - begin_;
    const char* start = buffer_.data() + begin_;
    const char* newline =
        static_cast<const char*>(memchr(start + scanned_, '\n', pending - scanned_));
    if (newline != nullptr) {
      size_t length = static_cast<size_t>(newline - start);
      begin_ += length + 1;
      scanned_ = 0;
      if (discarding_) {
        discarding_ = false;
        continue;
      }
      if (length == 0) continue;
      if (length <= max_entry_bytes_ && ux_LOG_DecodeEntry(start, length, &entry)) return true;
      Damaged(length > max_entry_bytes_ ? "an over-long line" : "a damaged line");
      continue;
    }
    scanned_ = pending;
    if (!discarding_ && pending > max_entry_bytes_) {
      discarding_ = true;
      Damaged("an over-long line");
    }
    if (discarding_ || begin_ == buffer_.size()) {
      buffer_.clear();
      begin_ = scanned_ = 0;
    } else if (begin_ > kReadChunk) {
      buffer_.erase(0, begin_);
      begin_ = 0;
    }
    size_t old_size = buffer_.size();
    buffer_.resize(old_size + kReadChunk);
    ssize_t got = read(fd_, &buffer_[old_size], kReadChunk);
    int error = errno;
    buffer_.resize(old_size + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got > 0) {
      file_offset_ += got;
      continue;
    }
    if (got < 0) {
      if (error == EINTR) continue;
      throw ux_EXCEPTION_base(std::string("ux_LOG_TextLogCursor: cannot read log ") + name_ + ": " +
                              strerror(error));
    }
    if (!Advance()) return false;
  }
}
