#include "ReportSystemEventLog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "BEXOScrubbedString.h"
#include "ConfigFile.h"
#include "Report_Log_Read_Write.h"
#include "SysLogSender.h"
#include "UxLog.h"
#include "product_path.h"
#include "ux_Time.h"

namespace {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";
constexpr char kDefaultPrefix[] = "/etc/kvelo/log/systemevent.log";
constexpr char kLogSource[] = "Report_Log_Read_Write.cpp";
constexpr char kSeparator[] = "----------------------------------";

}  // namespace

std::string ReportSystemEventLog::s_sysEventLogPrefix = kDefaultPrefix;
int ReportSystemEventLog::s_logType = kTextFile | kReportRecord;

ReportSystemEventLog::ReportSystemEventLog() { RefreshConfig(); }

void ReportSystemEventLog::RefreshConfig() {
  LockingConfigFile config;
  BEXOLock guard(config.mutex());
  bool loaded = config.read_config(bexo::ProductPath(kConfigPath));
  SysLogSender::RefreshConfig();
  if (!loaded) {
    UX_LOG(1, kLogSource, "RefreshConfig", "Read configure file error.");
    s_logType = kTextFile | kReportRecord;
    s_sysEventLogPrefix = kDefaultPrefix;
    return;
  }
  if (auto prefix = config.get_value("System-Event", "sysevent_log")) {
    s_sysEventLogPrefix = *prefix;
  } else {
    UX_LOG(1, kLogSource, "RefreshConfig", "Get systemevent_log from configure error.");
    s_sysEventLogPrefix = kDefaultPrefix;
  }
  auto type = config.get_value("admin", "logtype");
  if (!type) {
    UX_LOG(1, kLogSource, "RefreshConfig", "Get logtype from configure error.");
    s_logType = kTextFile | kReportRecord;
    return;
  }
  // Not the identity: "0" is the report record alone, "2" the text file alone.
  switch (type->empty() ? '\0' : (*type)[0]) {
    case '0':
      s_logType = kReportRecord;
      break;
    case '1':
      s_logType = kTextFile | kReportRecord;
      break;
    case '2':
      s_logType = kTextFile;
      break;
    default:
      UX_LOG(1, kLogSource, "RefreshConfig", "The log's configration is illegal!");
      s_logType = kTextFile | kReportRecord;
      break;
  }
}

int ReportSystemEventLog::WriteSystemEventLog(int level, const char* server, const char* source,
                                              const char* description) {
  if (SysLogSender* sender = SysLogSender::GetInstance()) {
    sender->SendSystemEventLog(level, server, source, description);
  }
  if (s_logType & kTextFile) {
    BEXOScrubbedString clean_server(server), clean_source(source), clean_description(description);
    ux_Time today;
    today.get_current_time();
    char name[1023];
    snprintf(name, sizeof name, "%s.%04d.%02d.%02d", bexo::ProductPath(s_sysEventLogPrefix).c_str(),
             today.get_year(), today.get_month(), today.get_day());
    char block[4096];
    int length = snprintf(block, sizeof block,
                          "Date:\t%s\nServer:\t%s\nSource:\t%s\nEvent Level:\t%d\nDescription:\t%s\n%s\n",
                          Report_Log_Read_Write::getDate().c_str(), clean_server.c_str(), clean_source.c_str(),
                          level & 15, clean_description.c_str(), kSeparator);
    if (length >= static_cast<int>(sizeof block)) length = sizeof block - 1;
    int fd = open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0664);
    if (fd < 0 && errno == ENOENT && bexo::MakeParentDirectories(name) == 0) {
      fd = open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0664);
    }
    if (fd < 0) {
      int err = errno;
      UX_LOG(1, kLogSource, "WriteSystemEventLog", "WARNING: Failed to open performance log file [%s] with [%s]",
             name, err != 0 ? strerror(err) : "Unknown error");
    } else {
      // One append per block keeps blocks of concurrent writers whole.
      ssize_t written = write(fd, block, static_cast<size_t>(length));
      (void)written;  // a lost text copy is not reported; the record and syslog carry the event
      close(fd);
    }
  }
  if (s_logType & kReportRecord) {
    Report_Log_Read_Write writer;  // its destructor flushes every report queue, promptly
    writer.WriteSystemEventLog(level, server, source, description);
  }
  return 0;
}
