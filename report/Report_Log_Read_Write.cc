// Configuration, queues and field helpers of Report_Log_Read_Write; the
// record writers are in report_writers.cc.
#include "Report_Log_Read_Write.h"

#include <stdlib.h>
#include <string.h>

#include "ConfigFile.h"
#include "product_path.h"
#include "report/report_text.h"

namespace {

constexpr char kConfigPath[] = "/etc/kvelo/morvane.ini";
constexpr char kDefaultLogDir[] = "/etc/kvelo/log";

}  // namespace

Report_Log_Read_Write::Report_Log_Read_Write() {
  static const int configured = RefreshConfig();
  (void)configured;
}

Report_Log_Read_Write::~Report_Log_Read_Write() { FlushLog(); }

int Report_Log_Read_Write::RefreshConfig() {
  ConfigFile config(bexo::ProductPath(kConfigPath));
  std::string directory = bexo::ProductPath(kDefaultLogDir);
  std::string name = "report_log";
  if (auto value = config.get_value("Common", "report_logdir"); value && !value->empty()) {
    directory = bexo::ProductPath(*value);
  }
  if (auto value = config.get_value("Common", "report_log"); value && !value->empty()) name = *value;
  if (auto value = config.get_value("Common", "report_log_rollover_bytes")) {
    long bytes = strtol(value->c_str(), nullptr, 10);
    if (bytes != 0) LogQueue::s_rolloverBytes = static_cast<int32_t>(bytes);
  }
  std::string base = directory + "/" + name;
  bexo::MakeParentDirectories(base);  // a fresh installation has no log directory yet
  GetAccessLogQueue().SetReportFilePath(base + ".access");
  GetViolationLogQueue().SetReportFilePath(base + ".violation");
  GetPerformanceLogQueue().SetReportFilePath(base + ".performance");
  GetCleanupLogQueue().SetReportFilePath(base + ".cleanup");
  GetSystemEventLogQueue().SetReportFilePath(base + ".systemevent");
  GetAppLogQueue().SetReportFilePath(base + ".app");
  GetAppArdmDashboarLogQueue().SetReportFilePath(base + ".apparmdashboard");
  GetRkdxLogQueue().SetReportFilePath(base + ".rkdx");
  return 1;
}

int Report_Log_Read_Write::FlushLog() {
  LogQueue* queues[] = {&GetAccessLogQueue(),    &GetViolationLogQueue(),   &GetPerformanceLogQueue(),
                        &GetCleanupLogQueue(),   &GetSystemEventLogQueue(), &GetAppLogQueue(),
                        &GetAppArdmDashboarLogQueue(), &GetRkdxLogQueue()};
  int result = 0;
  for (LogQueue* queue : queues) {
    if (queue->FlushLog() != 0) result = -1;
  }
  return result;
}

LogQueue& Report_Log_Read_Write::GetAccessLogQueue() {
  static LogQueue queue(s_AccessLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetViolationLogQueue() {
  static LogQueue queue(s_ViolationLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetPerformanceLogQueue() {
  static LogQueue queue(s_PerformanceLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetCleanupLogQueue() {
  static LogQueue queue(s_CleanupLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetSystemEventLogQueue() {
  static LogQueue queue(s_SystemEventLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetAppLogQueue() {
  static LogQueue queue(s_AppLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetAppArdmDashboarLogQueue() {
  static LogQueue queue(s_AppArmdashboardLogFileMutex);
  return queue;
}

LogQueue& Report_Log_Read_Write::GetRkdxLogQueue() {
  static LogQueue queue(s_RkdxLogFileMutex);
  return queue;
}

const char* Report_Log_Read_Write::getUser(const char* text) { return text && *text ? text : "Unknown"; }

const char* Report_Log_Read_Write::getGroup(const char* text) { return getUser(text); }

const char* Report_Log_Read_Write::getHost(const char* text) { return getUser(text); }

const char* Report_Log_Read_Write::getMaliciousEntity(const char* text) {
  return text && *text ? text : "virus";
}

std::string Report_Log_Read_Write::getDate() {
  char date[32];
  return std::string(date, bexo_report::CurrentDateInto(date));
}

std::string Report_Log_Read_Write::getDate(time_t when) {
  char date[32];
  return std::string(date, bexo_report::DateInto(when, date));
}

std::string Report_Log_Read_Write::getUrl(const char* protocol, const char* host, int port,
                                          const char* path) {
  char url[1024];
  return std::string(url, bexo_report::UrlInto(protocol ? protocol : "", host, port, path, url));
}

std::string Report_Log_Read_Write::getDomain(const char* text) {
  return std::string(bexo_report::DomainOf(text ? text : ""));
}

std::string Report_Log_Read_Write::getPath(const char* text) {
  std::string path;
  bexo_report::StringOut out{path};
  bexo_report::PathTo(text ? text : "", out);
  return path;
}

std::string Report_Log_Read_Write::getFilename(const char* path, const char* protocol) {
  return std::string(bexo_report::FilenameOf(path ? path : "", protocol ? protocol : ""));
}

std::string Report_Log_Read_Write::descriptify(const char* text) {
  std::string escaped;
  Descriptify_DecimalCode(text, escaped, false, true);
  return escaped;
}

std::string Report_Log_Read_Write::cutInvalidUTF8(const char* text) {
  std::string_view view(text ? text : "");
  return std::string(view.substr(0, bexo_report::CutInvalidUTF8Length(view)));
}
