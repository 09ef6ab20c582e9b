#include "cross_process_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "product_path.h"

CrossProcessLock::CrossProcessLock(std::string path, bool create)
    : path_(std::move(path)), create_(create) {}

CrossProcessLock::~CrossProcessLock() {
  if (fd_ >= 0 && fd_pid_ == getpid()) close(fd_);
}

int CrossProcessLock::FileForThisProcess() {
  pid_t pid = getpid();
  if (fd_ >= 0 && fd_pid_ == pid) return fd_;
  // A descriptor inherited across fork shares the parent's flock; drop it.
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  std::string file = bexo::ProductPath(path_);
  int flags = O_RDWR | O_CLOEXEC | (create_ ? O_CREAT : 0);
  int fd = open(file.c_str(), flags, 0666);
  if (fd < 0 && errno == ENOENT && create_ && bexo::MakeParentDirectories(file) == 0) {
    fd = open(file.c_str(), flags, 0666);
  }
  if (fd < 0) return -1;
  fd_ = fd;
  fd_pid_ = pid;
  return fd_;
}

int CrossProcessLock::lock() {
  mutex_.lock();
  int fd = FileForThisProcess();
  int rc = -1;
  if (fd >= 0) {
    do {
      rc = flock(fd, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
  }
  if (rc != 0) {
    mutex_.unlock();
    return -1;
  }
  return 0;
}

int CrossProcessLock::unlock() {
  int rc = flock(fd_, LOCK_UN);
  mutex_.unlock();
  return rc == 0 ? 0 : -1;
}
