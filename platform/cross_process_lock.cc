#include "cross_process_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <unordered_set>

#include "product_path.h"

namespace {

// Every live lock, so the fork handler can reset them in the child.
struct Registry {
  std::mutex mutex;
  std::unordered_set<CrossProcessLock*> locks;
};

// getpid() is a system call on current glibc; the lock path asks on every
// lock and unlock, so the pid is kept here and renewed by the fork handler.
pid_t g_pid = getpid();

Registry& TheRegistry() {
  static Registry* registry = new Registry;  // outlives static lock objects
  return *registry;
}

void PrepareFork() { TheRegistry().mutex.lock(); }

void ParentAfterFork() { TheRegistry().mutex.unlock(); }

void ChildAfterFork() {
  g_pid = getpid();
  Registry& registry = TheRegistry();
  for (CrossProcessLock* lock : registry.locks) lock->ResetAfterFork();
  registry.mutex.unlock();
}

void Register(CrossProcessLock* lock) {
  static std::once_flag handlers;
  std::call_once(handlers, [] { pthread_atfork(PrepareFork, ParentAfterFork, ChildAfterFork); });
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.mutex);
  registry.locks.insert(lock);
}

void Unregister(CrossProcessLock* lock) {
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.mutex);
  registry.locks.erase(lock);
}

}  // namespace

CrossProcessLock::CrossProcessLock(std::string path, bool create)
    : path_(std::move(path)), create_(create) {
  Register(this);
}

CrossProcessLock::~CrossProcessLock() {
  Unregister(this);
  if (fd_ >= 0 && fd_pid_ == g_pid) close(fd_);
  pthread_mutex_destroy(&mutex_);
}

void CrossProcessLock::ResetAfterFork() { pthread_mutex_init(&mutex_, nullptr); }

int CrossProcessLock::FileForThisProcess() {
  pid_t pid = g_pid;
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
  pthread_mutex_lock(&mutex_);
  int fd = FileForThisProcess();
  int rc = -1;
  if (fd >= 0) {
    do {
      rc = flock(fd, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
  }
  if (rc != 0) {
    pthread_mutex_unlock(&mutex_);
    return -1;
  }
  return 0;
}

int CrossProcessLock::unlock() {
  // A hold taken before a fork belongs to the parent: the child must not
  // release the parent's flock through the shared description.
  if (fd_pid_ != g_pid) return -1;
  int rc = flock(fd_, LOCK_UN);
  pthread_mutex_unlock(&mutex_);
  return rc == 0 ? 0 : -1;
}

namespace {

struct timespec DeadlineAfter(int timeout_ms) {
  struct timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += timeout_ms / 1000;
  deadline.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000L;
  }
  return deadline;
}

bool Passed(const struct timespec& deadline) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec > deadline.tv_sec ||
         (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

}  // namespace

int CrossProcessLock::LockWithin(int timeout_ms) {
  const struct timespec deadline = DeadlineAfter(timeout_ms < 0 ? 0 : timeout_ms);
  int error = pthread_mutex_timedlock(&mutex_, &deadline);
  if (error != 0) {
    errno = error;
    return -1;
  }
  int fd = FileForThisProcess();
  if (fd < 0) {
    error = errno;
    pthread_mutex_unlock(&mutex_);
    errno = error;
    return -1;
  }
  // flock has no timed form: poll it, yielding first (holders keep the lock
  // for microseconds), then sleeping longer up to a fifth of a millisecond.
  long sleep_ns = 20000;
  for (int attempt = 0;; ++attempt) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
    error = errno;
    if (error != EWOULDBLOCK && error != EINTR) break;
    if (Passed(deadline)) {
      error = ETIMEDOUT;
      break;
    }
    if (attempt < 16) {
      sched_yield();
      continue;
    }
    struct timespec pause = {0, sleep_ns};
    nanosleep(&pause, nullptr);
    if (sleep_ns < 200000L) sleep_ns *= 2;
  }
  pthread_mutex_unlock(&mutex_);
  errno = error;
  return -1;
}
