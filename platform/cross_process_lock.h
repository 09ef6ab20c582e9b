// CrossProcessLock: mutual exclusion between threads and processes through a
// lock file. An in-process mutex is taken first, then flock(2) on the file.
// The kernel drops the flock when its holder dies, so a crashed process never
// leaves a stale lock behind.
//
// flock belongs to the open file description, which a forked child shares with
// its parent; the lock file is therefore opened anew in every process that
// locks (on first use there), never inherited. Opening late also lets the
// product root be set after a lock object was built at library load. A fork
// handler gives the child fresh in-process mutexes, so a lock that some parent
// thread held at the fork does not stay held forever in the child.
//
// Thread safety: lock/unlock from any thread; unlock by the locking thread.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <string>

class CrossProcessLock {
 public:
  // `path` is a product path; with `create` the lock file and its missing
  // parent directories are made on first lock.
  CrossProcessLock(std::string path, bool create);
  ~CrossProcessLock();
  CrossProcessLock(const CrossProcessLock&) = delete;
  CrossProcessLock& operator=(const CrossProcessLock&) = delete;

  int lock();  // 0 when held, -1 when the lock file could not be opened or locked
  // As lock, but gives up after about `timeout_ms` milliseconds: -1 with
  // errno ETIMEDOUT when another thread or process held it all that time.
  int LockWithin(int timeout_ms);
  int unlock();
  const std::string& path() const { return path_; }

  // Called in a new child process (single-threaded) for every live lock.
  void ResetAfterFork();

 private:
  int FileForThisProcess();

  const std::string path_;
  const bool create_;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  int fd_ = -1;
  pid_t fd_pid_ = 0;
};
