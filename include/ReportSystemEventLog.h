// ReportSystemEventLog: records a system event (service start or stop, a
// failure, a configuration problem). Every event goes to syslog; depending on
// key "logtype" of section "admin" it also goes to a daily text file
// (<sysevent_log>.YYYY.MM.DD, prefix from key "sysevent_log" of section
// "System-Event", default "/etc/kvelo/log/systemevent.log") and to the
// system-event report records, whose writing also flushes every pending
// report record of the process.
//
// Thread safety: WriteSystemEventLog may be called from any thread; the
// configuration (RefreshConfig) is process-wide and read without a lock, so
// refresh it before threads start writing.
#pragma once

#include <string>

#include "bexo_export.h"

class BEXO_EXPORT ReportSystemEventLog {
 public:
  enum LogType { kTextFile = 1, kReportRecord = 2 };

  ReportSystemEventLog();  // reads the configuration

  static void RefreshConfig();
  // Sends, writes and records one event; returns 0.
  int WriteSystemEventLog(int level, const char* server, const char* source, const char* description);

  static std::string s_sysEventLogPrefix;
  static int s_logType;
};
