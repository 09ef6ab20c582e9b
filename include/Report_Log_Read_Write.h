// Report_Log_Read_Write: the facade through which the gateway's daemons write
// report records. Each writer cleans its text arguments (BEXOScrubbedString),
// prepares the fields, formats one tab-separated line ended by a line feed,
// and pushes it onto the LogQueue of its kind. The column order is that of the
// report database tables the files are imported into; the maximum field widths
// are deliberate truncations. A line that does not fit its buffer is dropped
// and the writer returns -1. Text arguments may be null.
//
// Files: <report_logdir>/<report_log>.<kind>.YYYYMMDD, from section "Common"
// of "/etc/kvelo/morvane.ini" (defaults "/etc/kvelo/log" and "report_log").
//
// Thread safety: writers may be called from any thread at once; they use
// stack buffers and the lock-free push. RefreshConfig runs once per process.
#pragma once

#include <time.h>

#include <string>

#include "BEXOScrubbedString.h"
#include "LogQueue.h"
#include "LoginAttributes.h"
#include "bexo_export.h"
#include "report_log_entries.h"

class BEXO_EXPORT Report_Log_Read_Write {
 public:
  Report_Log_Read_Write();  // reads the configuration once per process
  virtual ~Report_Log_Read_Write();  // flushes every queue

  // Re-reads the file locations and the rollover size; returns 1.
  static int RefreshConfig();
  // Flushes every queue; 0 when all succeeded, else -1.
  static int FlushLog();

  static LogQueue& GetAccessLogQueue();
  static LogQueue& GetViolationLogQueue();
  static LogQueue& GetPerformanceLogQueue();
  static LogQueue& GetCleanupLogQueue();
  static LogQueue& GetSystemEventLogQueue();
  static LogQueue& GetAppLogQueue();
  static LogQueue& GetAppArdmDashboarLogQueue();
  static LogQueue& GetRkdxLogQueue();

  // Each writer returns 0 (or the flush result of a completed batch), or -1
  // when the line was too long. The URL is built from protocol, host, port
  // (0: none) and path.

  // Fields 19 and 20: `category_names` (escaped) and `extra` (as given).
  int WriteAccessLog(const char* user, const char* protocol, const char* host, int port,
                     const char* path, long long size, const char* mime_type, const char* server,
                     const char* client_ip, const char* server_ip, const char* operation,
                     const char* uid, int category, int category_type, int elapsed_ms,
                     const char* category_names, const char* extra);

  int WriteVirusLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                    const char* malicious_entity, const char* entity_name, const char* action,
                    const char* scan_type, const char* blocked_by, const char* rule_name, int rule_id,
                    const char* group, const char* category, const char* uid, int filter_action);
  int WriteVirusLogWithAccessInfo(const char* user, const char* protocol, const char* host, int port,
                                  const char* path, const char* malicious_entity, const char* entity_name,
                                  const char* action, const char* scan_type, const char* blocked_by,
                                  const char* rule_name, int rule_id, const char* group,
                                  const char* category, const char* uid, const report_access_info& info);

  int WriteBlockingLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                       const char* scan_type, const char* blocked_by, const char* rule_name, int rule_id,
                       const char* group, const char* category, const char* uid, int filter_action);
  int WriteBlockingLogWithAccessInfo(const char* user, const char* protocol, const char* host, int port,
                                     const char* path, const char* scan_type, const char* blocked_by,
                                     const char* rule_name, int rule_id, const char* group,
                                     const char* category, const char* uid, const report_access_info& info);

  int WriteBotDetectionLog(const bot_log_entry& entry);
  int WriteBotDetectionLogWithAccessInfo(const bot_log_entry& entry, const report_access_info& info);

  int WriteDLPLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                  const char* matched, const char* file_name, const char* entity_name, const char* action,
                  const char* scan_type, const char* rule_name, const char* group, const char* uid,
                  int filter_action);
  int WriteDLPLogWithAccessInfo(const char* user, const char* protocol, const char* host, int port,
                                const char* path, const char* matched, const char* file_name,
                                const char* entity_name, const char* action, const char* scan_type,
                                const char* rule_name, const char* group, const char* uid,
                                const report_access_info& info);

  int WriteRkdxLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                   const char* device_name, const char* rule_name, const char* group, const char* client_ip,
                   const char* server_ip, int destination_port, int alert_source, int risk_level,
                   const char* uid, int filter_action);

  int WriteKLSCleanUpLog(const kls_cleanuplog_entry& entry);
  int WritePerformanceLog(const char* server, const char* metric_id, const char* metric_value);
  // The level is written as its low four bits.
  int WriteSystemEventLog(int level, const char* server, const char* source, const char* description);
  // Texts 2 and 3, the numbers and `last` are the caller's, copied in order;
  // `when` is written as a report date.
  int WriteAppLog(const char* user, const char* text2, const char* text3, int number1, int number2,
                  unsigned unsigned1, unsigned unsigned2, long long counter1, long long counter2,
                  time_t when, const char* last);
  // Pushes and flushes the dashboard queue at once; 1 on success, else -1.
  int WriteAppArmDashboardLog(unsigned application_id, long long first, unsigned long long second);

  // Report import (report_import.cc). ImportToDB loads one rolled file into
  // the table its name selects through the psql client: 0 done, -2 when the
  // client exits with status 2 (lost connection), -1 for any other failure,
  // an unknown file name or an over-long command. The lines are streamed
  // through a converter to the client's COPY text format (see
  // copy_text_converter.h); `rows`, when given, receives the row count.
  // The caller holds the file family's lock (GetReportFileMutex).
  static int ImportToDB(const char* file, LoginAttributes& login, long long* rows = nullptr);
  // 0 when the test query runs, else -1.
  static int CheckDBConnection(LoginAttributes& login);
  // Runs a command line without a shell (see process_spawn.h): its exit
  // status, or -1.
  static int Execute(const char* command);
  // The table a report file's name selects, or null.
  static const char* ImportTableFor(const char* file);

  // Field preparation, shared with the syslog sender.
  static const char* getUser(const char* text);   // "Unknown" when null or empty
  static const char* getGroup(const char* text);  // likewise
  static const char* getHost(const char* text);   // likewise
  static const char* getMaliciousEntity(const char* text);  // "virus" when null or empty
  static std::string getDate();                   // now, "%Y-%m-%d %H:%M:%S%z"
  static std::string getDate(time_t when);
  static std::string getUrl(const char* protocol, const char* host, int port, const char* path);
  static std::string getDomain(const char* text);
  static std::string getPath(const char* text);
  static std::string getFilename(const char* path, const char* protocol);
  static std::string descriptify(const char* text);
  static std::string cutInvalidUTF8(const char* text);
};
