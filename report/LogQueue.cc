#include "LogQueue.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

#include "UxLog.h"

// Built at load in this order; every process of the product opens the same files.
BEXONamedMutex s_AccessLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_ACCESS");
BEXONamedMutex s_SystemEventLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_SYSTEMEVENT");
BEXONamedMutex s_ViolationLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_VIOLATION");
BEXONamedMutex s_PerformanceLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_PERFORMANCE");
BEXONamedMutex s_CleanupLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_CLEANUP");
BEXONamedMutex s_AppLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_APPLOG");
// "APPARMDASHBOARLOG" (no D) is the name every other process opens.
BEXONamedMutex s_AppArmdashboardLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_APPARMDASHBOARLOG");
BEXONamedMutex s_RkdxLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_RKDXLOG");
BEXONamedMutex s_PolevtLogFileMutex("/etc/kvelo/_BEXO_RPT_LOG_LOCK_POLEVT");

int32_t LogQueue::s_rolloverBytes = 104857600;

namespace {

constexpr char kLogSource[] = "Report_Log_Read_Write.cpp";

// The anchor word: the head pointer in the low bits, the count above it. On
// the 32-bit target that is exactly (pointer, 32-bit count). On x86-64 user
// pointers fit in 48 bits, leaving 16 bits for the count, which saturates:
// only "more than 99" matters, and a push-only list has no ABA hazard.
#if UINTPTR_MAX == 0xFFFFFFFFu
constexpr int kCountShift = 32;
constexpr uint64_t kMaxCount = 0xFFFFFFFFu;
#else
constexpr int kCountShift = 48;
constexpr uint64_t kMaxCount = 0xFFFF;
#endif
constexpr uint64_t kPointerMask = (uint64_t{1} << kCountShift) - 1;
static_assert(std::atomic<uint64_t>::is_always_lock_free,
              "the anchor needs a lock-free 64-bit compare-and-swap (cmpxchg8b on 32-bit x86)");

bool Encodable(const LogQueue::Node* node) {
  return (reinterpret_cast<uintptr_t>(node) & ~kPointerMask) == 0;
}

uint64_t Pack(LogQueue::Node* head, uint64_t count) {
  if (count > kMaxCount) count = kMaxCount;
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(head)) | (count << kCountShift);
}

LogQueue::Node* HeadOf(uint64_t word) {
  return reinterpret_cast<LogQueue::Node*>(static_cast<uintptr_t>(word & kPointerMask));
}

uint32_t CountOf(uint64_t word) { return static_cast<uint32_t>(word >> kCountShift); }

// Lines of up to kPooledLineBytes live in blocks of one size, recycled
// through a small per-thread cache: the thread that writes a batch keeps its
// nodes for its own next pushes, so the usual record costs no trip through
// malloc. The cache is plain data, usable until the thread has ended; its
// releaser frees the blocks at thread exit and closes it, so that a flush
// from a later destructor (a queue's, at process exit) frees directly.
constexpr size_t kBlockBytes = 1024;
constexpr size_t kPooledLineBytes = kBlockBytes - sizeof(LogQueue::Node);
constexpr int kCachedBlocks = 128;

struct BlockCache {
  LogQueue::Node* head;
  int count;
  bool armed;   // the releaser exists for this thread
  bool closed;  // the releaser has run
};
thread_local BlockCache t_blocks;

struct BlockCacheReleaser {
  ~BlockCacheReleaser() {
    BlockCache& cache = t_blocks;
    while (cache.head != nullptr) {
      LogQueue::Node* next = cache.head->next;
      free(cache.head);
      cache.head = next;
    }
    cache.count = 0;
    cache.closed = true;
  }
};

LogQueue::Node* TakeBlock() {
  BlockCache& cache = t_blocks;
  LogQueue::Node* node = cache.head;
  if (node == nullptr) return static_cast<LogQueue::Node*>(malloc(kBlockBytes));
  cache.head = node->next;
  --cache.count;
  return node;
}

void ReleaseNode(LogQueue::Node* node) {
  BlockCache& cache = t_blocks;
  if (!node->pooled || cache.closed || cache.count >= kCachedBlocks) {
    free(node);
    return;
  }
  if (!cache.armed) {
    static thread_local BlockCacheReleaser releaser;
    (void)releaser;
    cache.armed = true;
  }
  node->next = cache.head;
  cache.head = node;
  ++cache.count;
}

void FreeList(LogQueue::Node* node) {
  while (node != nullptr) {
    LogQueue::Node* next = node->next;
    ReleaseNode(node);
    node = next;
  }
}

const char* ErrorText(int err) { return err != 0 ? strerror(err) : "Unknown"; }

// Queues alive in this process, so that a forked child can drop what its
// parent had pending. There are eight report queues; tests may build more.
constexpr int kMaxTrackedQueues = 64;
std::atomic<LogQueue*> g_queues[kMaxTrackedQueues];

}  // namespace

struct LogQueueForkReset {
  static void InChild() {
    for (auto& slot : g_queues) {
      if (LogQueue* queue = slot.load(std::memory_order_acquire)) queue->DropPendingAfterFork();
    }
  }
};

namespace {

void Track(LogQueue* queue) {
  static std::once_flag registered;
  std::call_once(registered, [] { pthread_atfork(nullptr, nullptr, &LogQueueForkReset::InChild); });
  for (auto& slot : g_queues) {
    LogQueue* expected = nullptr;
    if (slot.compare_exchange_strong(expected, queue)) return;
  }
}

void Untrack(LogQueue* queue) {
  for (auto& slot : g_queues) {
    LogQueue* expected = queue;
    if (slot.compare_exchange_strong(expected, nullptr)) return;
  }
}

}  // namespace

LogQueue::LogQueue(BEXONamedMutex& file_mutex) : file_mutex_(file_mutex), anchor_(0) { Track(this); }

LogQueue::~LogQueue() {
  FlushLog();
  Untrack(this);
}

bool LogQueue::AnchorIsLockFree() {
  static_assert(sizeof(uintptr_t) <= 8, "the anchor packs a pointer into 64 bits");
  return std::atomic<uint64_t>::is_always_lock_free;
}

void LogQueue::SetReportFilePath(std::string path) {
  BEXOLock guard(queue_mutex_);
  report_file_path_ = std::move(path);
}

std::string LogQueue::GetLogFileName(std::string& roll_suffix) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  char name[255];
  snprintf(name, sizeof name, "%s.%04d%02d%02d", report_file_path_.c_str(), local.tm_year + 1900,
           local.tm_mon + 1, local.tm_mday);
  char suffix[32];
  snprintf(suffix, sizeof suffix, "_%02d%02d%02d%03ld", local.tm_hour, local.tm_min, local.tm_sec,
           static_cast<long>(now.tv_usec / 1000));
  roll_suffix = suffix;
  return name;
}

LogQueue::Anchor LogQueue::GetAnchorAndRelease() {
  uint64_t word = anchor_.exchange(0, std::memory_order_acquire);
  return Anchor{HeadOf(word), CountOf(word)};
}

void LogQueue::DropPendingAfterFork() { FreeList(GetAnchorAndRelease().head); }

LogQueue::Node* LogQueue::NewNode(size_t capacity) {
  const bool pooled = capacity <= kPooledLineBytes;
  Node* node = pooled ? TakeBlock() : static_cast<Node*>(malloc(sizeof(Node) + capacity));
  if (node != nullptr) {
    node->line = reinterpret_cast<char*>(node + 1);
    node->pooled = pooled;
  }
  return node;
}

int LogQueue::Push(const char* data, int length) {
  if (length < 0) length = 0;
  Node* node = NewNode(static_cast<size_t>(length));
  if (node == nullptr) return -1;
  if (length > 0) memcpy(node->line, data, static_cast<size_t>(length));
  node->length = length;
  return PushNode(node);
}

int LogQueue::PushNode(Node* node) {
  if (!Encodable(node)) {
    // Never seen with the kernel's default address layout; write the line
    // through rather than lose it.
    int result = WriteLog(node->line, node->length);
    ReleaseNode(node);
    return result;
  }
  uint64_t seen = anchor_.load(std::memory_order_relaxed);
  uint64_t count;
  do {
    node->next = HeadOf(seen);
    count = static_cast<uint64_t>(CountOf(seen)) + 1;
  } while (!anchor_.compare_exchange_weak(seen, Pack(node, count), std::memory_order_release,
                                          std::memory_order_relaxed));
  return count > kBatchSize - 1 ? FlushLog() : 0;
}

int LogQueue::FlushLog() {
  BEXOLock guard(queue_mutex_);
  if (!guard.isLocked()) {
    UX_LOG(1, kLogSource, "FlushLog", "ERROR: Failed to aquire lock when flushing log to disk");
    return 0;
  }
  Node* head = GetAnchorAndRelease().head;
  if (head == nullptr) return 0;
  size_t total = 0;
  for (Node* node = head; node != nullptr; node = node->next) total += static_cast<size_t>(node->length);
  int result = 0;
  if (total > 0) {
    // Newest first: the batch goes out in the reverse of push order.
    if (batch_.size() < total) batch_.resize(total);
    char* out = batch_.data();
    for (Node* node = head; node != nullptr; node = node->next) {
      memcpy(out, node->line, static_cast<size_t>(node->length));
      out += node->length;
    }
    result = WriteLog(batch_.data(), static_cast<int>(total));
  }
  FreeList(head);
  return result;
}

int LogQueue::WriteLog(const char* data, int length) {
  BEXOLock guard(file_mutex_);
  if (!guard.isLocked()) {
    int err = errno;
    UX_LOG(1, kLogSource, "WriteLog", "ERROR: Failed to aquire lock in WriteLog with error: %s.",
           strerror(err));
    return -1;
  }
  std::string roll_suffix;
  std::string name = GetLogFileName(roll_suffix);
  umask(0);  // report files are 0660 for the importer's group; left at 0 on purpose
  int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_LARGEFILE | O_CLOEXEC, 0660);
  if (fd < 0) {
    int err = errno;
    UX_LOG(1, kLogSource, "WriteLog", "Failed to open log file %s with [%d:%s]", name.c_str(), err,
           ErrorText(err));
  }
  // One write per batch keeps batches of different processes apart; the loop
  // only finishes a short write (a full disk) instead of leaving half a line.
  const char* rest = data;
  size_t left = length > 0 ? static_cast<size_t>(length) : 0;
  do {
    ssize_t written = write(fd, rest, left);
    if (written < 0) {
      int err = errno;
      if (err == EINTR) continue;
      UX_LOG(1, kLogSource, "WriteLog", "Report log write failed with [%d:%s]", err, ErrorText(err));
      if (fd >= 0) close(fd);
      return -1;
    }
    rest += written;
    left -= static_cast<size_t>(written);
  } while (left > 0);
  struct stat st;
  int stat_rc = fstat(fd, &st);
  close(fd);
  if (stat_rc == 0 && st.st_size >= s_rolloverBytes) RollOver(name, roll_suffix);
  return 0;
}

void LogQueue::RollOver(const std::string& name, std::string roll_suffix) {
  // Two rollovers within one millisecond would give the same name, and a plain
  // rename would replace the earlier file unread. The file mutex is held, so
  // waiting for the next millisecond's name is safe.
  std::string rolled = name + roll_suffix;
  for (int attempt = 0;; ++attempt) {
    int rc = renameat2(AT_FDCWD, name.c_str(), AT_FDCWD, rolled.c_str(), RENAME_NOREPLACE);
    int err = rc == 0 ? 0 : errno;
    if (rc != 0 && (err == EINVAL || err == ENOSYS)) {  // a file system without no-replace renames
      rc = rename(name.c_str(), rolled.c_str());
      err = rc == 0 ? 0 : errno;
    }
    if (rc == 0) return;
    if (err != EEXIST || attempt == 100) {
      UX_LOG(1, kLogSource, "WriteLog", "Report log rollover failed, rename(%s, %s) failed with [%d:%s]",
             name.c_str(), rolled.c_str(), err, ErrorText(err));
      return;
    }
    usleep(200);
    GetLogFileName(roll_suffix);
    rolled = name + roll_suffix;
  }
}

BEXONamedMutex& GetReportFileMutex(const std::string& file_name) {
  static const struct {
    const char* marker;
    BEXONamedMutex* mutex;
  } kFamilies[] = {
      {".access.", &s_AccessLogFileMutex},         {".violation.", &s_ViolationLogFileMutex},
      {".performance.", &s_PerformanceLogFileMutex}, {".cleanup.", &s_CleanupLogFileMutex},
      {".systemevent.", &s_SystemEventLogFileMutex}, {".app.", &s_AppLogFileMutex},
      {".apparmdashboard.", &s_AppArmdashboardLogFileMutex}, {".rkdx.", &s_RkdxLogFileMutex},
      {".polevtkrau.", &s_PolevtLogFileMutex},
  };
  for (const auto& family : kFamilies) {
    if (file_name.find(family.marker) != std::string::npos) return *family.mutex;
  }
  UX_LOG(1, kLogSource, "GetReportFileMutex", "Unexpected import log file name: %s", file_name.c_str());
  return s_AccessLogFileMutex;
}
