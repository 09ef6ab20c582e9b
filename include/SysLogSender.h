// SysLogSender: forwards report events to syslog through the system event log
// service. Each send formats one event as "tk_key=value" pairs separated by
// commas (fixed key order, deliberate value widths, text arguments cleaned as
// in the report files, the date in the report date form) and sends it with
// the event's identifier at severity 11. Sends return the service's result,
// 0 on success, or 0 when the event is not forwarded at all.
//
// Thread safety: one process-wide instance (GetInstance); sends from any
// thread share the configuration lock, RefreshConfig excludes them.
#pragma once

#include <atomic>

#include "BEXOMutex.h"
#include "BEXORWLock.h"
#include "bexo_export.h"
#include "report_log_entries.h"

class BEXO_EXPORT SysLogSender {
 public:
  static SysLogSender* GetInstance();
  // Makes the event log service read its configuration again.
  static int RefreshConfig();

  virtual ~SysLogSender();
  SysLogSender(const SysLogSender&) = delete;
  SysLogSender& operator=(const SysLogSender&) = delete;

  int SendLog(int eventId, int severity);
  int SendLog(int eventId, int severity, const char* text);

  // Event 321638 (web), 324822 (FTP GET) or 324838 (other FTP operations).
  int SendAccessLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                    long long size, const char* mime_type, const char* server, const char* client_ip,
                    const char* server_ip, const char* operation, const char* uid, int category,
                    int category_type);
  // Filter actions 0-4 select the event; 5 and above send nothing.
  int SendBlockingLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                      const char* scan_type, const char* blocked_by, const char* rule_name, int opp_id,
                      const char* group, const char* category, const char* uid, int filter_action);
  // Event 320018, or 320034 when the malicious entity names spyware.
  int SendVirusLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                   const char* malicious_entity, const char* entity_name, const char* action,
                   const char* scan_type, const char* rule_name, const char* group, const char* category,
                   const char* uid);
  int SendBotDetectionLog(const bot_log_entry& entry);
  int SendDLPLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                 const char* matched, const char* file_name, const char* entity_name, const char* action,
                 const char* scan_type, const char* rule_name, const char* group, const char* uid);
  int SendAppControlBlockLog(const char* user, const char* category, const char* protocol,
                             const char* rule_name, const char* group, const char* client_ip);
  int SendKLSCleanUpLog(const kls_cleanuplog_entry& entry);
  int SendRkdxLog(const char* user, const char* protocol, const char* host, int port, const char* path,
                  const char* device_name, const char* rule_name, const char* group, const char* client_ip,
                  const char* server_ip, int destination_port, int alert_source, int risk_level,
                  int filter_action);
  int SendPerformanceLog(const char* server, const char* metric_id, const char* metric_value);
  // The event identifier is `eventId` itself.
  int SendSystemEventLog(int eventId, const char* server, const char* source, const char* description);

 protected:
  SysLogSender();

 private:
  int Send(int eventId, const char* failure_message, const char* text);

  int init_result_;
  BEXORWLock config_lock_;

  static std::atomic<SysLogSender*> m_pInstance;
  static BEXOMutex m_lock;
};
