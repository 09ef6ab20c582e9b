// BEXOEventLogBase: the base of the gateway's text event logs. Writers in a
// daemon and in the workers it forks append finished lines to one buffer in a
// private System V shared-memory segment; the buffer goes to the day's output
// file when it is full or when the owner calls Flush(). The daemon must call
// Initialize before it forks: the segment and the file counter are shared only
// with processes forked afterwards.
//
// Output files: "<prefix>.YYYY.MM.DD.NNNN" (local date, NNNN the day's
// rollover counter from 0001). A file that has reached the maximum size is
// left for the next counter. Files are opened for appending with the umask set
// to 002, so that the log group may read and rotate them.
//
// Output modes: 0 report database only (Flush discards the text lines),
// 1 database and text file, 2 text file only; other values act as 0. In modes
// 0 and 1 Flush also flushes the process's report log queues.
//
// Thread safety: every operation may be called from any thread of any process
// that shares the log. Writes, flushes and file naming hold the in-process
// mutex and then the cross-process file mutex; PrepareICU, Refresh and
// GetLocalizedTimestamp hold the in-process mutex only.
#pragma once

#include <stdio.h>

#include <atomic>
#include <memory>
#include <string>

#include "BEXOFileMutex.h"
#include "BEXOLogRolloverCounter.h"
#include "BEXOMutex.h"
#include "Report_Log_Read_Write.h"
#include "bexo_export.h"

class MemoryLogBuffer;

class BEXO_EXPORT BEXOEventLogBase {
 public:
  static constexpr unsigned int kDefaultBufferSize = 4194304;   // 4 MiB
  static constexpr unsigned int kMinimumBufferSize = 65536;     // 64 KiB
  static constexpr unsigned int kMaximumBufferSize = 134217728;  // 128 MiB
  static constexpr unsigned int kDefaultMaxFileSize = 104857600;  // 100 MiB

  // `lockFilePath` is the product path of the cross-process lock file (made
  // when missing); `logName` names the log in diagnostics.
  BEXOEventLogBase(const char* lockFilePath, const char* logName);
  virtual ~BEXOEventLogBase();
  BEXOEventLogBase(const BEXOEventLogBase&) = delete;
  BEXOEventLogBase& operator=(const BEXOEventLogBase&) = delete;

  // Creates the shared buffer (when `useSharedMemory`) and the rollover
  // counter, prepares the date format for `language` ("en" when empty) and
  // stores the settings. 0, or negative on failure.
  int Initialize(bool useSharedMemory, unsigned int bufferSize, const char* filePrefix,
                 int outputMode, const char* language, bool flag, int maxFileSize);
  // Replaces the settings; the date format keeps its first language. 0 or -1.
  int Refresh(const char* filePrefix, int outputMode, const char* language, bool flag);
  // Creates the UTF-8 converter and the date format once. 0 or -1.
  int PrepareICU(const char* language);
  // Creates the segment: 4 MiB when `bufferSize` is 0 or above 128 MiB, at
  // least 64 KiB otherwise; 8 more bytes hold the rollover counter. 0 or -1.
  int InitSharedMemory(unsigned int bufferSize);

  // Appends one finished line (the caller supplies its line feed). 1 when
  // taken; 1 too when the line is longer than the whole buffer, which drops
  // it after dumping the buffer twice; 0 on failure.
  int WriteMemoryLog(const char* text, unsigned int length);
  // Flushes the report queues (modes 0, 1) and empties the buffer: discarded
  // in mode 0, appended to the output file in modes 1 and 2. 1 or the dump's
  // result (1 ok, 0 write error) on success, 0 when the file cannot be opened.
  int Flush();

  // The file a dump would append to now; at most size - 1 bytes.
  void GetOutputFileName(char* buffer, unsigned int size);
  // That file opened for appending (O_SYNC): a descriptor, or -1 with errno.
  int OpenOutputFileDescriptor();
  // That file opened with mode "a+": a stream, or null with errno.
  FILE* OpenOutputFileStream();

  // The current time in the log's date format (short date, medium time) and
  // time zone (key "TimeZone" of section "Common", else the system's), in
  // UTF-8. Empty before PrepareICU or when it does not fit.
  void GetLocalizedTimestamp(char* buffer, unsigned int size);

  int GetOutputMode() const { return output_mode_.load(std::memory_order_relaxed); }
  bool GetFlag() const { return flag_.load(std::memory_order_relaxed); }
  // The bytes handed to the memory buffer; 0 when there is none.
  unsigned int GetBufferSize() const { return buffer_size_; }

 protected:
  // The report writer whose queues Flush() writes out in modes 0 and 1.
  Report_Log_Read_Write& GetReportHistoryWriter() { return report_history_; }

 private:
  struct Icu;  // the ICU objects, kept out of this header

  // Bodies of the public operations; the caller holds both mutexes.
  void OutputFileNameLocked(char* buffer, unsigned int size);
  // The name to open; false (errno EINVAL) while there is no file prefix.
  bool OutputFileNameForOpenLocked(char* name, unsigned int size);
  int OpenOutputFileLocked();
  // Opens the output file, dumps the buffer into it and closes it; the dump's
  // result, or -1 (logged) when the file cannot be opened.
  int DumpBufferLocked(const char* function);
  void LogOpenFailure(const char* function, int error);

  const std::string log_name_;
  std::unique_ptr<Icu> icu_;
  std::atomic<int> output_mode_{0};
  std::string file_prefix_;  // resolved product path; guarded by in_process_mutex_
  std::string language_;     // guarded by in_process_mutex_
  std::atomic<bool> flag_{false};
  unsigned int max_file_size_ = kDefaultMaxFileSize;
  BEXOLogRolloverCounter* rollover_counter_ = nullptr;
  std::unique_ptr<MemoryLogBuffer> memory_buffer_;
  unsigned int buffer_size_ = 0;
  bool use_shared_memory_ = true;
  void* segment_ = nullptr;          // buffer and counter, when shared memory is used
  void* counter_segment_ = nullptr;  // the counter's own segment otherwise
  BEXOMutex in_process_mutex_;
  BEXOFileMutex file_mutex_;
  Report_Log_Read_Write report_history_;
};
