// ux_LOG_TextLog: a rotating text log of entries, one JSON line each (format
// in ux_LOG_EntryJson.h, file names in ux_LOG_LogFiles.h).
//
// Every entry is encoded first and then appended with one write(2) on an
// O_APPEND descriptor. At synchronisation level 2 the append happens under
// the log's lock file (BEXOFileMutex: threads and processes exclude each
// other); a lock not had within ux_LOG_LogConfig::GetLockWaitMs() throws a
// ux_EXCEPTION_base whose message contains "failed to get lock". Below level
// 2 only the threads of this device are serialised.
//
// Under the lock the writer checks that its descriptor is still the active
// file (another process may have rotated it), rotates when the entry would
// take the file past the rotation size (the active file is renamed to the
// next number, a new one is created), and, when the file does not end in a
// line feed (a writer was killed mid-write), starts with one, so the torn
// fragment stays a line of its own and costs only itself.
//
// Thread safety: Write from any thread; the setters before writing starts.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <mutex>
#include <string>

#include "BEXOFileMutex.h"
#include "bexo_export.h"
#include "ux_LOG_LogDevice.h"

class BEXO_EXPORT ux_LOG_TextLog : public ux_LOG_LogDevice {
 public:
  void Write(const ux_LOG_LogEntry& entry) override;
  void SetSynchronizationLevel(int level) override { sync_level_ = level; }
  void SetRotationBySize(uint32_t bytes) { rotation_size_ = bytes; }  // 0: never rotate
  const char* GetActiveLogPath() const { return active_path_.c_str(); }

 private:
  friend class ux_LOG_LogDevice;
  ux_LOG_TextLog(const std::string& directory, const std::string& name, mode_t mode);
  ~ux_LOG_TextLog() override;

  bool Open();  // (re)opens the active file; false with errno
  void Append(const std::string& line);
  void Rotate();

  const std::string directory_;
  const std::string name_;
  const std::string active_path_;
  const mode_t mode_;
  BEXOFileMutex lock_;
  std::mutex mutex_;  // below level 2
  int sync_level_;
  uint32_t rotation_size_ = 0;
  int fd_ = -1;
  dev_t fd_dev_ = 0;
  ino_t fd_ino_ = 0;
  int64_t end_written_ = -1;  // where our last append ended
};
