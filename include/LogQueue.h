// LogQueue: one family of report log files. Threads push finished record
// lines without taking a lock; every 100th push (and FlushLog) drains the
// pending lines into today's file with one append under the family's
// cross-process lock, renaming the file with a time suffix once it has grown
// past the rollover size.
//
// File names: <path>.YYYYMMDD for the current file, <path>.YYYYMMDD_HHMMSSmmm
// for a rolled one.
//
// Thread safety: Push, FlushLog and SetReportFilePath may be called from any
// thread. WriteLog called directly must not race with SetReportFilePath.
// After fork() a child starts with an empty queue: lines pending in the parent
// belong to the parent, which writes them itself. A process killed before a
// flush loses at most 198 lines whose Push had returned (the batch one thread
// is writing and the list the others are gathering, 99 each), plus those whose
// Push had not.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <string>
#include <vector>

#include "BEXOMutex.h"
#include "BEXONamedMutex.h"
#include "bexo_export.h"

class BEXO_EXPORT LogQueue {
 public:
  // A pending line. The bytes follow the node in the same allocation.
  struct Node {
    Node* next;  // the next older line
    char* line;
    int length;
    bool pooled;  // a recycled block of the queue's one block size
  };
  // The list head and the number of lines pushed since the list was last
  // taken. Both live in one 64-bit word and change together.
  struct Anchor {
    Node* head;
    uint32_t count;
  };

  static constexpr uint32_t kBatchSize = 100;

  explicit LogQueue(BEXONamedMutex& file_mutex);
  ~LogQueue();
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  void SetReportFilePath(std::string path);
  // Today's file name; `roll_suffix` receives the suffix a rollover made now
  // would append.
  std::string GetLogFileName(std::string& roll_suffix);
  // Takes every pending line, leaving the queue empty.
  Anchor GetAnchorAndRelease();

  // 0, or the result of FlushLog when this push completed a batch; -1 when
  // memory is short.
  int Push(const char* data, int length);
  // Push of a line written in place, sparing Push's copy: `write(room)` puts
  // at most `capacity` bytes at `room` and returns the end of the line.
  template <typename Write>
  int PushBuilt(size_t capacity, Write&& write) {
    Node* node = NewNode(capacity);
    if (node == nullptr) return -1;
    node->length = static_cast<int>(write(node->line) - node->line);
    return PushNode(node);
  }
  // Appends `data` to today's file and rolls the file over when it is full.
  int WriteLog(const char* data, int length);
  // Writes the pending lines, newest first, in one append. 0 when there was
  // nothing to write, else the result of WriteLog.
  int FlushLog();

  // True when the anchor word is updated without a lock on this platform.
  static bool AnchorIsLockFree();

  // Rollover threshold in bytes shared by every queue of the process.
  static int32_t s_rolloverBytes;

 private:
  friend struct LogQueueForkReset;
  void DropPendingAfterFork();
  static Node* NewNode(size_t capacity);
  int PushNode(Node* node);
  void RollOver(const std::string& name, std::string roll_suffix);

  std::string report_file_path_;
  BEXOMutex queue_mutex_;
  BEXONamedMutex& file_mutex_;
  std::atomic<uint64_t> anchor_;
  std::vector<char> batch_;  // reused flush buffer, guarded by queue_mutex_
};

// The lock of the file family a report file name belongs to; the access lock
// (and a level-1 message) for a name of no known family.
BEXO_EXPORT BEXONamedMutex& GetReportFileMutex(const std::string& file_name);

// The cross-process locks of the report file families, one lock file each.
extern BEXO_EXPORT BEXONamedMutex s_AccessLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_SystemEventLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_ViolationLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_PerformanceLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_CleanupLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_AppLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_AppArmdashboardLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_RkdxLogFileMutex;
extern BEXO_EXPORT BEXONamedMutex s_PolevtLogFileMutex;
