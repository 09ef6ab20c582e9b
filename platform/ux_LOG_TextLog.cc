#include "ux_LOG_TextLog.h"

#include <errno.h>
#include <inttypes.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "UxLog.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_EntryJson.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_LogFiles.h"

namespace {

std::string Failure(const char* what, const std::string& path, int error) {
  return std::string("ux_LOG_TextLog: ") + what + " " + path + ": " + strerror(error);
}

// Holds the log's lock file for one append, bounded in time.
class LockFileHold {
 public:
  explicit LockFileHold(BEXOFileMutex& lock) : lock_(lock) {
    if (lock_.lockWithin(ux_LOG_LogConfig::GetLockWaitMs()) != 0) {
      throw ux_EXCEPTION_base(Failure("failed to get lock", lock_.path(), errno));
    }
  }
  ~LockFileHold() { lock_.unlock(); }
  LockFileHold(const LockFileHold&) = delete;
  LockFileHold& operator=(const LockFileHold&) = delete;

 private:
  BEXOFileMutex& lock_;
};

// rename(2) that refuses to replace an existing file.
bool RenameNoReplace(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without RENAME_NOREPLACE: only the lock holder rotates.
  if (access(to.c_str(), F_OK) == 0) {
    errno = EEXIST;
    return false;
  }
  return rename(from.c_str(), to.c_str()) == 0;
}

void WriteAll(int fd, const char* data, size_t size, const std::string& path) {
  while (size > 0) {
    ssize_t written = write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      throw ux_EXCEPTION_base(Failure("cannot write", path, errno));
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
}

}  // namespace

ux_LOG_TextLog::ux_LOG_TextLog(const std::string& directory, const std::string& name, mode_t mode)
    : directory_(directory),
      name_(name),
      active_path_(ux_log_files::ActivePath(directory, name)),
      mode_(mode),
      lock_(ux_log_files::LockPath(directory, name).c_str(), true),
      sync_level_(ux_LOG_LogConfig::GetSynchronizationLevel()) {}

ux_LOG_TextLog::~ux_LOG_TextLog() {
  if (fd_ >= 0) close(fd_);
}

// Read access too: the check for a torn last line reads one byte back.
bool ux_LOG_TextLog::Open() {
  int fd = open(active_path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, mode_);
  if (fd < 0) return false;
  struct stat info;
  if (fstat(fd, &info) != 0) {
    int error = errno;
    close(fd);
    errno = error;
    return false;
  }
  if (fd_ >= 0) close(fd_);
  fd_ = fd;
  fd_dev_ = info.st_dev;
  fd_ino_ = info.st_ino;
  end_written_ = -1;
  return true;
}

void ux_LOG_TextLog::Write(const ux_LOG_LogEntry& entry) {
  thread_local std::string line;
  ux_LOG_EncodeEntry(entry, &line);
  if (line.size() > ux_log_files::kMaxEntryBytes) {
    throw ux_EXCEPTION_base("ux_LOG_TextLog: entry of " + std::to_string(line.size()) +
                            " bytes is longer than a log line may be");
  }
  if (sync_level_ >= 2) {
    LockFileHold hold(lock_);
    Append(line);
  } else {
    std::lock_guard<std::mutex> guard(mutex_);
    Append(line);
  }
}

void ux_LOG_TextLog::Append(const std::string& line) {
  // One stat tells both whether our descriptor is still the active file and,
  // when it is, its size.
  struct stat info;
  if (stat(active_path_.c_str(), &info) != 0 || info.st_dev != fd_dev_ || info.st_ino != fd_ino_) {
    if (!Open() || fstat(fd_, &info) != 0) {
      throw ux_EXCEPTION_base(Failure("cannot open", active_path_, errno));
    }
  }
  int64_t size = info.st_size;
  if (rotation_size_ > 0 && size > 0 &&
      size + static_cast<int64_t>(line.size()) > static_cast<int64_t>(rotation_size_)) {
    Rotate();
    size = 0;
  }
  if (size > 0 && size != end_written_) {
    char last = '\n';
    if (pread(fd_, &last, 1, size - 1) == 1 && last != '\n') WriteAll(fd_, "\n", 1, active_path_);
    size += last != '\n';
  }
  WriteAll(fd_, line.data(), line.size(), active_path_);
  end_written_ = size + static_cast<int64_t>(line.size());
}

// The number of the last rotation is kept in the lock file (whose holder is
// the only one rotating), so a rotation does not list the directory; a
// missing or stale number falls back to the listing.
void ux_LOG_TextLog::Rotate() {
  const std::string lock_path = ux_log_files::LockPath(directory_, name_);
  int lock_fd = open(lock_path.c_str(), O_RDWR | O_CLOEXEC);
  int64_t next = -1;
  if (lock_fd >= 0) {
    char text[24] = {};
    ssize_t got = pread(lock_fd, text, sizeof text - 1, 0);
    char* end = nullptr;
    long long last = got > 0 ? strtoll(text, &end, 10) : -1;
    if (got > 0 && end != text && last >= 0) next = last + 1;
  }
  for (int attempt = 0;; ++attempt) {
    if (next < 0 || attempt > 0) {
      std::vector<ux_log_files::RotatedFile> rotated = ux_log_files::ListRotated(directory_, name_);
      next = rotated.empty() ? 1 : rotated.back().sequence + 1;
    }
    std::string target = ux_log_files::RotatedPath(directory_, name_, next);
    if (RenameNoReplace(active_path_, target)) break;
    int error = errno;
    if (error != EEXIST || attempt > 0) {
      if (lock_fd >= 0) close(lock_fd);
      throw ux_EXCEPTION_base(Failure("cannot rotate", active_path_, error));
    }
  }
  if (lock_fd >= 0) {
    // Fixed width, so a new number always covers the old one.
    char text[32];
    int length = snprintf(text, sizeof text, "%020" PRId64 "\n", next);
    if (pwrite(lock_fd, text, static_cast<size_t>(length), 0) != length && UxLog::canLog(1)) {
      UxLog::writeLog3(1, "ux_LOG_TextLog.cpp", __LINE__, "Rotate",
                       UxLog::LogStr("WARNING: cannot keep the rotation number in %s", lock_path.c_str()));
    }
    close(lock_fd);
  }
  if (!Open()) throw ux_EXCEPTION_base(Failure("cannot open", active_path_, errno));
}
