#include "SysLogSender.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <string>

#include "Report_Log_Read_Write.h"
#include "SystemEventLog.h"
#include "UxLog.h"
#include "report/report_text.h"

std::atomic<SysLogSender*> SysLogSender::m_pInstance{nullptr};
BEXOMutex SysLogSender::m_lock;

namespace {

using bexo_report::ScrubbedField;

constexpr char kLogSource[] = "SysLogSender.cpp";
constexpr int kSeverity = 11;
// Formatter limits of the message buffers: wide messages get the larger one.
constexpr size_t kSmallMessage = 4095;
constexpr size_t kLargeMessage = 4999;

constexpr char kAccessFailure[] = "Failed to send EVT_URL_ACCESS_TRACKING syslog";
constexpr char kVirusFailure[] = "Failed to send EVT_VIRUS/SPYWARE_FOUND syslog";

// True when `text` is a case-insensitive prefix of `word` (an empty text is).
bool PrefixOf(const char* text, const char* word) { return strncasecmp(text, word, strlen(text)) == 0; }

std::string CurrentDate() { return Report_Log_Read_Write::getDate(); }

// The URL, domain, path and file name of a request, from scrubbed arguments.
struct RequestText {
  RequestText(const ScrubbedField& protocol, const ScrubbedField& host, int port, const ScrubbedField& path)
      : url(Report_Log_Read_Write::getUrl(protocol.c_str(), host.c_str(), port, path.c_str())),
        domain(Report_Log_Read_Write::getDomain(host.c_str())),
        path_text(Report_Log_Read_Write::getPath(path.c_str())),
        file_name(Report_Log_Read_Write::getFilename(path.c_str(), protocol.c_str())) {}
  std::string url, domain, path_text, file_name;
};

}  // namespace

SysLogSender::SysLogSender() : init_result_(InitializeSystemEventLog()) {
  if (init_result_ != 0) UX_LOG(1, kLogSource, "SysLogSender", "Fail to initialize system event log.");
}

SysLogSender::~SysLogSender() {
  if (init_result_ == 0 && DeinitializeSystemEventLog() != 0) {
    UX_LOG(1, kLogSource, "~SysLogSender", "Fail to deinitialize system event log.");
  }
}

SysLogSender* SysLogSender::GetInstance() {
  SysLogSender* instance = m_pInstance.load(std::memory_order_acquire);
  if (instance == nullptr) {
    BEXOLock guard(m_lock);
    instance = m_pInstance.load(std::memory_order_relaxed);
    if (instance == nullptr) {
      instance = new SysLogSender;  // lives until the process ends
      m_pInstance.store(instance, std::memory_order_release);
    }
  }
  return instance;
}

int SysLogSender::RefreshConfig() {
  SysLogSender* sender = GetInstance();
  BEXOWLock guard(sender->config_lock_);
  return ::RefreshConfig();
}

int SysLogSender::SendLog(int eventId, int severity) {
  BEXORLock guard(config_lock_);
  return SystemEventLog(eventId, severity);
}

int SysLogSender::SendLog(int eventId, int severity, const char* text) {
  BEXORLock guard(config_lock_);
  return SystemEventLogF(eventId, severity, "%s", text);
}

int SysLogSender::Send(int eventId, const char* failure_message, const char* text) {
  int result = SendLog(eventId, kSeverity, text);
  if (result != 0) UX_LOG(1, kLogSource, "Send", "%s", failure_message);
  return result;
}

int SysLogSender::SendAccessLog(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                                const char* path_arg, long long size, const char* mime_arg,
                                const char* server_arg, const char* client_ip_arg, const char* server_ip_arg,
                                const char* operation_arg, const char* uid_arg, int category,
                                int category_type) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), mime(mime_arg),
      server(server_arg), client_ip(client_ip_arg), server_ip(server_ip_arg), operation(operation_arg),
      uid(uid_arg);
  RequestText request(protocol, host, port, path);
  char message[kSmallMessage + 1];
  snprintf(message, kSmallMessage,
           "%s=%.256s,%s=%.300s,%s=%lld,%s=%s,%s=%.50s,%s=%.50s,%s=%.64s,%s=%.50s,%s=%.50s,%s=%.200s,%s=%.200s,"
           "%s=%.200s,%s=%.50s,%s=%.32s,%s=%d,%s=%d",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_url", request.url.c_str(),
           "tk_size", size, "tk_date_field", CurrentDate().c_str(), "tk_protocol", protocol.c_str(),
           "tk_mime_content", mime.c_str(), "tk_server", server.c_str(), "tk_client_ip", client_ip.c_str(),
           "tk_server_ip", server_ip.c_str(), "tk_domain", request.domain.c_str(), "tk_path",
           request.path_text.c_str(), "tk_file_name", request.file_name.c_str(), "tk_operation",
           operation.c_str(), "tk_uid", uid.c_str(), "tk_category", category, "tk_category_type",
           category_type);
  // A prefix of "FTP" counts as FTP, the empty protocol included.
  int event = 321638;
  if (PrefixOf(protocol.c_str(), "FTP")) event = PrefixOf(operation.c_str(), "GET") ? 324822 : 324838;
  return Send(event, kAccessFailure, message);
}

int SysLogSender::SendBlockingLog(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                                  const char* path_arg, const char* scan_type_arg, const char* blocked_by_arg,
                                  const char* rule_arg, int opp_id, const char* group_arg,
                                  const char* category_arg, const char* uid_arg, int filter_action) {
  if (filter_action == 6) return 0;
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), scan_type(scan_type_arg),
      blocked_by(blocked_by_arg), rule(rule_arg), group(group_arg), category(category_arg), uid(uid_arg);
  RequestText request(protocol, host, port, path);
  char message[kSmallMessage + 1];
  snprintf(message, kSmallMessage,
           "%s=%.256s,%s=%s,%s=%.32s,%s=%.300s,%s=%.20s,%s=%.200s,%s=%.64s,%s=%.300s,%s=%.60s,%s=%.64s,%s=%.64s,"
           "%s=%d,%s=%.20s,%s=%.128s,%s=%.32s,%s=%d",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(),
           "tk_protocol", protocol.c_str(), "tk_url", request.url.c_str(), "tk_malicious_entity", "",
           "tk_file_name", request.file_name.c_str(), "tk_entity_name", "", "tk_action", "", "tk_scan_type",
           scan_type.c_str(), "tk_blocked_by", blocked_by.c_str(), "tk_rule_name", rule.c_str(), "tk_opp_id",
           opp_id, "tk_group_name", Report_Log_Read_Write::getGroup(group.c_str()), "tk_category",
           category.c_str(), "tk_uid", uid.c_str(), "tk_filter_action", filter_action);
  switch (filter_action) {
    case 0:
    case 1:
      return Send(321618, "Failed to send EVT_URL_BLOCKING syslog", message);
    case 2:
      return Send(321650, "Failed to send EVT_URL_MONITORING syslog", message);
    case 3:
      return Send(321666, "Failed to send EVT_URL_WARNING syslog", message);
    case 4:
      return Send(321682, "Failed to send EVT_URL_WARN_AND_CONTINUING syslog", message);
    default:
      return 0;  // 5 and above are formatted but not forwarded
  }
}

int SysLogSender::SendVirusLog(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                               const char* path_arg, const char* malicious_arg, const char* entity_arg,
                               const char* action_arg, const char* scan_type_arg, const char* rule_arg,
                               const char* group_arg, const char* category_arg, const char* uid_arg) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), malicious(malicious_arg),
      entity(entity_arg), action(action_arg), scan_type(scan_type_arg), rule(rule_arg), group(group_arg),
      category(category_arg), uid(uid_arg);
  RequestText request(protocol, host, port, path);
  const char* entity_kind = Report_Log_Read_Write::getMaliciousEntity(malicious.c_str());
  char message[kSmallMessage + 1];
  snprintf(message, kSmallMessage,
           "%s=%.256s,%s=%s,%s=%.32s,%s=%.300s,%s=%.20s,%s=%.200s,%s=%.64s,%s=%.300s,%s=%.64s,%s=%.64s,%s=%.64s,"
           "%s=%d,%s=%.64s,%s=%.128s,%s=%.32s",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(),
           "tk_protocol", protocol.c_str(), "tk_url", request.url.c_str(), "tk_malicious_entity", entity_kind,
           "tk_file_name", request.file_name.c_str(), "tk_entity_name", entity.c_str(), "tk_action",
           action.c_str(), "tk_scan_type", scan_type.c_str(), "tk_blocked_by", "", "tk_rule_name", rule.c_str(),
           "tk_opp_id", 0, "tk_group_name", Report_Log_Read_Write::getGroup(group.c_str()), "tk_category",
           category.c_str(), "tk_uid", uid.c_str());
  // Any prefix of "Spyware" ("spy" too) selects the spyware event.
  int event = PrefixOf(entity_kind, "Spyware") ? 320034 : 320018;
  return Send(event, kVirusFailure, message);
}

int SysLogSender::SendBotDetectionLog(const bot_log_entry& entry) {
  ScrubbedField user(entry.user), protocol(entry.protocol), host(entry.host), path(entry.path),
      entity(entry.entity_name), rule(entry.rule_name), group(entry.group_name), scan_type(entry.scan_type),
      action(entry.action);
  RequestText request(protocol, host, entry.port, path);
  char message[kLargeMessage + 1];
  snprintf(message, kLargeMessage, "%s=%.256s,%s=%s,%s=%.128s,%s=%.128s,%s=%.64s,%s=%.64s,%s=%.64s,%s=%.64s,%s=%.1024s",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(),
           "tk_entity_name", entity.c_str(), "tk_rule_name", rule.c_str(), "tk_group_name",
           Report_Log_Read_Write::getGroup(group.c_str()), "tk_scan_type", scan_type.c_str(), "tk_action",
           action.c_str(), "tk_protocol", protocol.c_str(), "tk_url", request.url.c_str());
  return Send(320066, "Failed to send EVT_BOT_FOUND syslog", message);
}

int SysLogSender::SendDLPLog(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                             const char* path_arg, const char* matched_arg, const char* file_name_arg,
                             const char* entity_arg, const char* action_arg, const char* scan_type_arg,
                             const char* rule_arg, const char* group_arg, const char* uid_arg) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), matched(matched_arg),
      file_name(file_name_arg), entity(entity_arg), action(action_arg), scan_type(scan_type_arg), rule(rule_arg),
      group(group_arg), uid(uid_arg);
  RequestText request(protocol, host, port, path);
  char message[kLargeMessage + 1];
  snprintf(message, kLargeMessage,
           "%s=%.256s,%s=%s,%s=%s,%s=%.128s,%s=%.64s,%s=%.64s,%s=%.64s,%s=%.64s,%s=%.1024s,%s=%.100s,%s=%s,%s=%.32s",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(),
           "tk_entity_name", entity.c_str(), "tk_rule_name", rule.c_str(), "tk_group_name",
           Report_Log_Read_Write::getGroup(group.c_str()), "tk_scan_type", scan_type.c_str(), "tk_action",
           action.c_str(), "tk_protocol", protocol.c_str(), "tk_url", request.url.c_str(), "tk_malicious_entity",
           matched.c_str(), "tk_file_name", file_name.c_str(), "tk_uid", uid.c_str());
  return Send(320082, "Failed to send EVT_DLP_FOUND syslog", message);
}

int SysLogSender::SendAppControlBlockLog(const char* user_arg, const char* category_arg, const char* protocol_arg,
                                         const char* rule_arg, const char* group_arg, const char* client_ip_arg) {
  ScrubbedField user(user_arg), category(category_arg), protocol(protocol_arg), rule(rule_arg), group(group_arg),
      client_ip(client_ip_arg);
  char message[kSmallMessage + 1];
  snprintf(message, kSmallMessage, "%s=%.256s,%s=%s,%s=%.64s,%s=%.64s,%s=%.128s,%s=%.64s,%s=%.50s", "tk_username",
           Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(), "tk_category",
           category.c_str(), "tk_protocol", protocol.c_str(), "tk_rule_name", rule.c_str(), "tk_group_name",
           Report_Log_Read_Write::getGroup(group.c_str()), "tk_client_ip", client_ip.c_str());
  return Send(331218, "Failed to send EVT_APP_CONTROL_BLOCK syslog", message);
}

int SysLogSender::SendKLSCleanUpLog(const kls_cleanuplog_entry& entry) {
  ScrubbedField uid(entry.uid), hostname(entry.hostname), entity(entry.entity_name), type(entry.entity_type),
      subtype(entry.entity_subtype), function(entry.function_code);
  char message[kSmallMessage + 1];
  snprintf(message, kSmallMessage, "%s=%.64s,%s=%.64s,%s=%s,%s=%.200s,%s=%.200s,%s=%.200s,%s=%s", "tk_uid",
           uid.c_str(), "tk_hostname", Report_Log_Read_Write::getHost(hostname.c_str()), "tk_date_field",
           CurrentDate().c_str(), "tk_entity_name", entity.c_str(), "tk_entity_type", type.c_str(),
           "tk_entity_subtype", subtype.c_str(), "tk_function_code", function.c_str());
  return Send(320050, "Failed to send EVT_KLS_CLEAN_UP syslog", message);
}

int SysLogSender::SendRkdxLog(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                              const char* path_arg, const char* device_arg, const char* rule_arg,
                              const char* group_arg, const char* client_ip_arg, const char* server_ip_arg,
                              int destination_port, int alert_source, int risk_level, int filter_action) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), device(device_arg),
      rule(rule_arg), group(group_arg), client_ip(client_ip_arg), server_ip(server_ip_arg);
  RequestText request(protocol, host, port, path);
  char message[kLargeMessage + 1];
  snprintf(message, kLargeMessage,
           "%s=%.256s,%s=%s,%s=%.50s,%s=%.1024s,%s=%.300s,%s=%.300s,%s=%.1024s,%s=%.64s,%s=%.50s,%s=%.50s,%s=%d,"
           "%s=%d,%s=%d,%s=%d",
           "tk_username", Report_Log_Read_Write::getUser(user.c_str()), "tk_date_field", CurrentDate().c_str(),
           "tk_protocol", protocol.c_str(), "tk_url", request.url.c_str(), "tk_domain", request.domain.c_str(),
           "tk_device_name", device.c_str(), "tk_rule_name", rule.c_str(), "tk_group_name",
           Report_Log_Read_Write::getGroup(group.c_str()), "tk_client_ip", client_ip.c_str(), "tk_server_ip",
           server_ip.c_str(), "tk_destination_port", destination_port, "tk_rkdx_source", alert_source,
           "tk_risk_level", risk_level, "tk_filter_action", filter_action);
  return Send(320098, "Failed to send EVT_RKDX_CALLBACK_FOUND syslog", message);
}

int SysLogSender::SendPerformanceLog(const char* server_arg, const char* metric_id_arg,
                                     const char* metric_value_arg) {
  ScrubbedField server(server_arg), metric_id(metric_id_arg), metric_value(metric_value_arg);
  char message[kSmallMessage + 1];
  // The receivers expect the trailing comma.
  snprintf(message, kSmallMessage, "%s=%.64s,%s=%s,%s=%.300s,%s=%.50s,", "tk_server", server.c_str(),
           "tk_date_field", CurrentDate().c_str(), "tk_metric_id", metric_id.c_str(), "tk_metric_value",
           metric_value.c_str());
  return Send(328022, "Failed to send EVT_PERFORMANCE syslog", message);
}

int SysLogSender::SendSystemEventLog(int eventId, const char* server_arg, const char* source_arg,
                                     const char* description_arg) {
  ScrubbedField server(server_arg), source(source_arg), description(description_arg);
  char message[kLargeMessage + 1];
  snprintf(message, kLargeMessage, "%s=%.64s,%s=%s,%s=%.64s,%s=%.1024s", "tk_server", server.c_str(),
           "tk_date_field", CurrentDate().c_str(), "tk_source", source.c_str(), "tk_description",
           description.c_str());
  return Send(eventId, "Failed to send system event syslog", message);
}
