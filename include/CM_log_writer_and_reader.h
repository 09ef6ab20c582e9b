// CM_log_writer records the gateway's security events (virus detections, URL
// blocks, web-security violations, data-loss-prevention hits, numbered system
// events) as structured entries with named, typed attributes in a rotating
// text log that the central management collects. CM_log_reader walks such a
// log entry by entry and keeps its place in a bookmark file ("<name>.bmk")
// so that a collector can resume.
//
// Both read "lang" and "CMLogPath" of section "Common" of
// "/etc/kvelo/morvane.ini". Integer attributes declared u8 keep only the low
// 8 bits of the int given (300 is recorded as 44): deliberate.
//
// The bookmark saves ahead: it holds the end of the batch being delivered
// (a position plus the save step), not the last entry delivered, and a
// reader started from it skips that many entries. Kept on purpose.
//
// Thread safety: a writer may be used from several threads (the platform
// writer serialises entries; the writer's mutex guards only the re-creation
// of its device). A reader belongs to one thread. The platform settings
// (definition path, locale, code page, synchronisation level) are
// process-wide: the last writer or reader constructed wins.
#pragma once

#include <pthread.h>

#include <memory>
#include <string>

#include "bexo_export.h"
#include "ux_LOG_LogDevice.h"
#include "ux_LOG_LogEntry.h"
#include "ux_LOG_LogWriter.h"
#include "ux_LOG_TextLogCursor.h"
#include "ux_UTIL_no_inadvertant_copies.h"

class BEXO_EXPORT CM_log_writer : public ux_UTIL_no_inadvertant_copies {
 public:
  // A null directory reads "CMLogPath" (empty when missing); a null
  // definition path means "/etc/kvelo/slf2.ldf".
  CM_log_writer(const char* definitionPath, const char* logDirectory, const char* logName);
  ~CM_log_writer();

  int WriteEntry(ux_LOG_LogEntry* entry);  // 0, or -1
  int GenerateTextLogDevice();             // 0, or -1
  int InitThreadMutex();
  // Moves the writer to a new device on the log named "CM" (not the stored
  // name: deliberate) in the same directory.
  void release_handle();

  void write_virus_log(const char* virusName, const char* filename, const char* downloadSource,
                       const char* clientIp, const char* loginUser, const char* userMail,
                       const char* majorType, const char* minorType, int firstAction,
                       int firstActionResult, int secondAction, int secondActionResult);
  void write_url_blocking_log(const char* objectNameUrl, const char* clientIp,
                              const char* loginUser, const char* userMail, const char* filename,
                              int blockingType, const char* blockingRule, const char* oppId);
  // Ints of -1 and null strings leave their optional attribute out.
  void write_web_security_violation_log(
      const char* fullPathUrl, const char* clientIp, const char* loginUser, const char* userMail,
      const char* filename, int blockingType, const char* detectionRule, const char* oppId,
      int userAgentType, int detectionType, const char* categoryIdList, int reputationLevel,
      int reputationScore, const char* policyName, int action, int isRkdxDetection,
      int rkdxDetectionSource, int rkdxRiskLevel);
  void write_dlp_log(const char* clientIp, const char* userName, const char* userDomain,
                     const char* userMail, const char* objectNameUrl, const char* policyName,
                     const char* filename, const char* templates, const char* protocol,
                     int actionFlag, const char* matchedContent);
  void write_event_log(int entryId, const char* description, int componentCode, int reasonCode);

  // "YYYY-MM-DD HH:MM:SS" of one clock reading, local and UTC. False, and
  // nothing written, when a buffer is null or smaller than 20 bytes.
  static bool getDateTime(char* localBuffer, int localSize, char* utcBuffer, int utcSize);

 private:
  ux_LOG_LogWriter writer_;
  ux_LOG_LogDevice* device_ = nullptr;
  char* log_directory_ = nullptr;
  char* log_name_ = nullptr;
  pthread_mutex_t thread_mutex_;
  bool enabled_ = false;
};

class BEXO_EXPORT CM_log_reader : public ux_UTIL_no_inadvertant_copies {
 public:
  // `saveStep`: entries delivered between two bookmark saves;
  // `maxEntryBytes`: passed to the platform cursor (0: its default). This
  // form prints "in constructor." first, always.
  CM_log_reader(const char* definitionPath, const char* logDirectory, const char* logName,
                int saveStep, int maxEntryBytes);
  // With a bookmark name: "<name>.bmk" in the log directory, or a path.
  CM_log_reader(const char* definitionPath, const char* logDirectory, const char* logName,
                const char* bookmarkName, int saveStep, int maxEntryBytes);
  ~CM_log_reader();

  // 1 when an entry was delivered into `entry`, 0 at the end of the log or
  // when the reader is not ready.
  int next(ux_LOG_LogEntry& entry);

  int _read_from_bookmark_file();              // 0, or -1 when there is none
  int _write_to_bookmark_file(int position);  // 0, or -1
  const std::string& bookmark_path() const { return bookmark_path_; }
  bool ready() const { return ready_; }

 private:
  void Setup(const char* definitionPath, const char* logDirectory, const char* logName,
             const char* bookmarkName, int maxEntryBytes);

  std::unique_ptr<ux_LOG_TextLogCursor> cursor_;
  std::string log_directory_;
  std::string log_name_;
  std::string bookmark_path_;
  int position_ = 0;
  int skip_count_ = 0;
  int day_start_ = 0;
  int newest_day_distance_ = 10000;
  int next_save_ = 0;
  int save_step_;
  bool ready_ = false;
};
