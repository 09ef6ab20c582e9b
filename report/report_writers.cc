// The record writers of Report_Log_Read_Write. Each line is written straight
// into its queue node from the printf format of its record kind (parsed at
// compile time), byte for byte what snprintf would give.
#include <string.h>
#include <time.h>

#include <vector>

#include "Report_Log_Read_Write.h"
#include "report/record_format.h"
#include "report/report_formats.h"
#include "report/report_text.h"

namespace {

using bexo_report::BoundedText;
using bexo_report::DateInto;
using bexo_report::DomainOf;
using bexo_report::FormatSlot;
using bexo_report::OrDefault;
using bexo_report::PathPart;
using bexo_report::ScrubbedField;
using std::string_view;

constexpr string_view kUnknown = "Unknown";

// Queues one record of layout kSlot. `capacity` is the size of the kind's
// line buffer: a line that does not fit below it is dropped (-1), as an
// snprintf into that buffer would have been.
template <FormatSlot kSlot, typename... Args>
int PushRecord(LogQueue& queue, size_t capacity, const Args&... args) {
  const size_t bound = bexo_report::LineBound<kSlot>(args...);
  if (bound < capacity) {
    return queue.PushBuilt(bound, [&](char* room) { return bexo_report::WriteLine<kSlot>(room, args...); });
  }
  // Fields near their widths: format in full to learn whether the line fits.
  std::vector<char> line(capacity);
  const size_t length = bexo_report::FormatBounded<kSlot>(line.data(), capacity, args...);
  if (length >= capacity) return -1;
  return queue.Push(line.data(), static_cast<int>(length));
}

// The text with entities escaped, at most N bytes. Text with nothing to
// escape (the usual case) is returned in place, uncopied.
template <size_t N>
string_view Escape(string_view text, BoundedText<N>& out) {
  if (bexo_report::PlainPrefix(text.data(), text.size()) == text.size()) return text.substr(0, N);
  bexo_report::DescriptifyTo(text, false, true, out);
  return out.view();
}

string_view Cut(string_view text) { return text.substr(0, bexo_report::CutInvalidUTF8Length(text)); }

// The URL (escaped, then cut) and file name of one request.
struct RequestFields {
  RequestFields(const ScrubbedField& protocol, const ScrubbedField& host, int port, const ScrubbedField& path) {
    size_t length = bexo_report::UrlInto(protocol.view(), host.c_str(), port, path.c_str(), raw_url);
    url = Cut(Escape(string_view(raw_url, length), escaped_url));
    file_name = Cut(bexo_report::FilenameOf(path.view(), protocol.view()));
  }
  RequestFields(const RequestFields&) = delete;  // `url` may point into `raw_url`
  char raw_url[1024];
  BoundedText<1024> escaped_url;
  string_view url;
  string_view file_name;
};

struct CurrentDate {
  CurrentDate() : view(text, bexo_report::CurrentDateInto(text)) {}
  char text[32];
  string_view view;
};

// Fields 1-15 of the violation layout.
struct ViolationFields {
  string_view user, date, protocol, url, malicious, file_name, entity, action, scan_type, blocked_by, rule;
  int rule_id;
  string_view group, category, uid;
};

template <FormatSlot kSlot>
int WriteViolation(size_t capacity, const ViolationFields& f, int filter_action) {
  return PushRecord<kSlot>(Report_Log_Read_Write::GetViolationLogQueue(), capacity, f.user, f.date, f.protocol, f.url,
                           f.malicious, f.file_name, f.entity, f.action, f.scan_type, f.blocked_by, f.rule, f.rule_id,
                           f.group, f.category, f.uid, filter_action);
}

template <FormatSlot kSlot>
int WriteViolationWithInfo(size_t capacity, const ViolationFields& f, const ScrubbedField& host,
                           const report_access_info& info) {
  ScrubbedField text1(info.text1), text2(info.text2), text3(info.text3), text5(info.text5);
  BoundedText<300> escaped_domain;
  const string_view domain = Escape(bexo_report::DomainOf(host.view()), escaped_domain);
  return PushRecord<kSlot>(Report_Log_Read_Write::GetViolationLogQueue(), capacity, f.user, f.date, f.protocol, f.url,
                           f.malicious, f.file_name, f.entity, f.action, f.scan_type, f.blocked_by, f.rule, f.rule_id,
                           f.group, f.category, f.uid, info.size, text1.view(), text2.view(), text3.view(),
                           domain, text5.view(), info.number1, info.number2, info.number3);
}

// The arguments shared by the virus and blocking writers, scrubbed and prepared.
struct ViolationRequest {
  ViolationRequest(const char* user_arg, const char* protocol_arg, const char* host_arg, int port,
                   const char* path_arg, const char* rule_arg, const char* group_arg, const char* category_arg,
                   const char* uid_arg)
      : user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), rule(rule_arg),
        group(group_arg), category(category_arg), uid(uid_arg), request(protocol, host, port, path) {
    rule_field = Escape(rule.view(), escaped_rule);
    category_field = Escape(category.view(), escaped_category);
  }
  ViolationFields Fields() const {
    ViolationFields f{};
    f.user = bexo_report::OrDefault(user.view(), kUnknown);
    f.date = date.view;
    f.protocol = protocol.view();
    f.url = request.url;
    f.file_name = request.file_name;
    f.rule = rule_field;
    f.group = bexo_report::OrDefault(group.view(), kUnknown);
    f.category = category_field;
    f.uid = uid.view();
    return f;
  }
  ScrubbedField user, protocol, host, path, rule, group, category, uid;
  RequestFields request;
  CurrentDate date;
  BoundedText<1024> escaped_rule;
  BoundedText<128> escaped_category;
  string_view rule_field, category_field;  // may point into the buffers above
};

struct BotRequest {
  explicit BotRequest(const bot_log_entry& e)
      : base(e.user, e.protocol, e.host, e.port, e.path, e.rule_name, e.group_name, nullptr, e.uid),
        entity(e.entity_name), action(e.action), scan_type(e.scan_type) {}
  ViolationFields Fields() const {
    ViolationFields f = base.Fields();
    f.malicious = "bot";
    f.file_name = string_view();
    f.entity = entity.view();
    f.action = action.view();
    f.scan_type = scan_type.view();
    f.rule_id = 0;
    f.category = "bot detection";
    return f;
  }
  ViolationRequest base;
  ScrubbedField entity, action, scan_type;
};

struct DlpRequest {
  DlpRequest(const char* user, const char* protocol, const char* host, int port, const char* path,
             const char* matched_arg, const char* file_name_arg, const char* entity_arg, const char* action_arg,
             const char* scan_type_arg, const char* rule, const char* group, const char* uid)
      : base(user, protocol, host, port, path, rule, group, nullptr, uid), matched(matched_arg),
        file_name(file_name_arg), entity(entity_arg), action(action_arg), scan_type(scan_type_arg) {}
  ViolationFields Fields() const {
    ViolationFields f = base.Fields();
    f.malicious = matched.view();
    f.file_name = Cut(file_name.view());
    f.entity = entity.view();
    f.action = action.view();
    f.scan_type = scan_type.view();
    f.rule_id = 0;
    f.category = "dlp filter";
    return f;
  }
  ViolationRequest base;
  ScrubbedField matched, file_name, entity, action, scan_type;
};

struct VirusRequest {
  VirusRequest(const char* user, const char* protocol, const char* host, int port, const char* path,
               const char* malicious_arg, const char* entity_arg, const char* action_arg, const char* scan_type_arg,
               const char* blocked_by_arg, const char* rule, int rule_id_arg, const char* group,
               const char* category, const char* uid)
      : base(user, protocol, host, port, path, rule, group, category, uid), malicious(malicious_arg),
        entity(entity_arg), action(action_arg), scan_type(scan_type_arg), blocked_by(blocked_by_arg),
        rule_id(rule_id_arg) {}
  ViolationFields Fields() const {
    ViolationFields f = base.Fields();
    f.malicious = bexo_report::OrDefault(malicious.view(), "virus");
    f.entity = entity.view();
    f.action = action.view();
    f.scan_type = scan_type.view();
    f.blocked_by = blocked_by.view();
    f.rule_id = rule_id;
    return f;
  }
  ViolationRequest base;
  ScrubbedField malicious, entity, action, scan_type, blocked_by;
  int rule_id;
};

struct BlockingRequest {
  BlockingRequest(const char* user, const char* protocol, const char* host, int port, const char* path,
                  const char* scan_type_arg, const char* blocked_by_arg, const char* rule, int rule_id_arg,
                  const char* group, const char* category, const char* uid)
      : base(user, protocol, host, port, path, rule, group, category, uid), scan_type(scan_type_arg),
        blocked_by(blocked_by_arg), rule_id(rule_id_arg) {}
  ViolationFields Fields() const {
    ViolationFields f = base.Fields();
    f.scan_type = scan_type.view();
    f.blocked_by = blocked_by.view();
    f.rule_id = rule_id;
    return f;
  }
  ViolationRequest base;
  ScrubbedField scan_type, blocked_by;
  int rule_id;
};

}  // namespace


int Report_Log_Read_Write::WriteAccessLog(const char* user_arg, const char* protocol_arg, const char* host_arg,
                                          int port, const char* path_arg, long long size, const char* mime_arg,
                                          const char* server_arg, const char* client_ip_arg,
                                          const char* server_ip_arg, const char* operation_arg,
                                          const char* uid_arg, int category, int category_type, int elapsed_ms,
                                          const char* category_names_arg, const char* extra_arg) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), mime(mime_arg),
      server(server_arg), client_ip(client_ip_arg), server_ip(server_ip_arg), operation(operation_arg),
      uid(uid_arg), category_names(category_names_arg), extra(extra_arg);
  RequestFields request(protocol, host, port, path);
  CurrentDate date;
  BoundedText<1024> escaped_path, escaped_names;
  const string_view path_field = Escape(PathPart(path.view()), escaped_path);
  const string_view names = Escape(category_names.view(), escaped_names);
  return PushRecord<bexo_report::kAccess>(
      GetAccessLogQueue(), 6144, OrDefault(user.view(), kUnknown), request.url, size, date.view, protocol.view(),
      mime.view(), server.view(), client_ip.view(), server_ip.view(), DomainOf(host.view()), path_field,
      request.file_name, operation.view(), uid.view(), category, category_type, elapsed_ms / 1000, elapsed_ms,
      names, extra.view());
}

int Report_Log_Read_Write::WriteVirusLog(const char* user, const char* protocol, const char* host, int port,
                                         const char* path, const char* malicious_entity, const char* entity_name,
                                         const char* action, const char* scan_type, const char* blocked_by,
                                         const char* rule_name, int rule_id, const char* group,
                                         const char* category, const char* uid, int filter_action) {
  VirusRequest request(user, protocol, host, port, path, malicious_entity, entity_name, action, scan_type,
                       blocked_by, rule_name, rule_id, group, category, uid);
  return WriteViolation<bexo_report::kViolation>(5000, request.Fields(), filter_action);
}

int Report_Log_Read_Write::WriteVirusLogWithAccessInfo(
    const char* user, const char* protocol, const char* host, int port, const char* path,
    const char* malicious_entity, const char* entity_name, const char* action, const char* scan_type,
    const char* blocked_by, const char* rule_name, int rule_id, const char* group, const char* category,
    const char* uid, const report_access_info& info) {
  VirusRequest request(user, protocol, host, port, path, malicious_entity, entity_name, action, scan_type,
                       blocked_by, rule_name, rule_id, group, category, uid);
  return WriteViolationWithInfo<bexo_report::kViolationWithInfo>(5000, request.Fields(), request.base.host, info);
}

int Report_Log_Read_Write::WriteBlockingLog(const char* user, const char* protocol, const char* host, int port,
                                            const char* path, const char* scan_type, const char* blocked_by,
                                            const char* rule_name, int rule_id, const char* group,
                                            const char* category, const char* uid, int filter_action) {
  BlockingRequest request(user, protocol, host, port, path, scan_type, blocked_by, rule_name, rule_id, group,
                          category, uid);
  return WriteViolation<bexo_report::kViolation>(5000, request.Fields(), filter_action);
}

int Report_Log_Read_Write::WriteBlockingLogWithAccessInfo(
    const char* user, const char* protocol, const char* host, int port, const char* path, const char* scan_type,
    const char* blocked_by, const char* rule_name, int rule_id, const char* group, const char* category,
    const char* uid, const report_access_info& info) {
  BlockingRequest request(user, protocol, host, port, path, scan_type, blocked_by, rule_name, rule_id, group,
                          category, uid);
  return WriteViolationWithInfo<bexo_report::kViolationWithInfo>(5000, request.Fields(), request.base.host, info);
}

int Report_Log_Read_Write::WriteBotDetectionLog(const bot_log_entry& entry) {
  BotRequest request(entry);
  return WriteViolation<bexo_report::kBot>(4096, request.Fields(), entry.filter_action);
}

int Report_Log_Read_Write::WriteBotDetectionLogWithAccessInfo(const bot_log_entry& entry,
                                                              const report_access_info& info) {
  BotRequest request(entry);
  return WriteViolationWithInfo<bexo_report::kBotWithInfo>(4096, request.Fields(), request.base.host, info);
}

int Report_Log_Read_Write::WriteDLPLog(const char* user, const char* protocol, const char* host, int port,
                                       const char* path, const char* matched, const char* file_name,
                                       const char* entity_name, const char* action, const char* scan_type,
                                       const char* rule_name, const char* group, const char* uid,
                                       int filter_action) {
  DlpRequest request(user, protocol, host, port, path, matched, file_name, entity_name, action, scan_type,
                     rule_name, group, uid);
  return WriteViolation<bexo_report::kDlp>(4096, request.Fields(), filter_action);
}

int Report_Log_Read_Write::WriteDLPLogWithAccessInfo(const char* user, const char* protocol, const char* host,
                                                     int port, const char* path, const char* matched,
                                                     const char* file_name, const char* entity_name,
                                                     const char* action, const char* scan_type,
                                                     const char* rule_name, const char* group, const char* uid,
                                                     const report_access_info& info) {
  DlpRequest request(user, protocol, host, port, path, matched, file_name, entity_name, action, scan_type,
                     rule_name, group, uid);
  return WriteViolationWithInfo<bexo_report::kDlpWithInfo>(4096, request.Fields(), request.base.host, info);
}

int Report_Log_Read_Write::WriteRkdxLog(const char* user_arg, const char* protocol_arg, const char* host_arg,
                                        int port, const char* path_arg, const char* device_arg,
                                        const char* rule_arg, const char* group_arg, const char* client_ip_arg,
                                        const char* server_ip_arg, int destination_port, int alert_source,
                                        int risk_level, const char* uid_arg, int filter_action) {
  ScrubbedField user(user_arg), protocol(protocol_arg), host(host_arg), path(path_arg), device(device_arg),
      rule(rule_arg), group(group_arg), client_ip(client_ip_arg), server_ip(server_ip_arg), uid(uid_arg);
  RequestFields request(protocol, host, port, path);
  CurrentDate date;
  BoundedText<1024> escaped_rule;
  const string_view rule_field = Escape(rule.view(), escaped_rule);
  return PushRecord<bexo_report::kRkdx>(
      GetRkdxLogQueue(), 5000, OrDefault(user.view(), kUnknown), date.view, protocol.view(), request.url,
      DomainOf(host.view()), device.view(), rule_field, OrDefault(group.view(), kUnknown), client_ip.view(),
      server_ip.view(), destination_port, alert_source, risk_level, uid.view(), filter_action);
}

int Report_Log_Read_Write::WriteKLSCleanUpLog(const kls_cleanuplog_entry& entry) {
  ScrubbedField uid(entry.uid), hostname(entry.hostname), entity(entry.entity_name), type(entry.entity_type),
      subtype(entry.entity_subtype), function(entry.function_code);
  CurrentDate date;
  return PushRecord<bexo_report::kCleanup>(GetCleanupLogQueue(), 2048, uid.view(),
                                           OrDefault(hostname.view(), kUnknown), date.view, entity.view(),
                                           type.view(), subtype.view(), function.view());
}

int Report_Log_Read_Write::WritePerformanceLog(const char* server_arg, const char* metric_id_arg,
                                               const char* metric_value_arg) {
  ScrubbedField server(server_arg), metric_id(metric_id_arg), metric_value(metric_value_arg);
  CurrentDate date;
  return PushRecord<bexo_report::kPerformance>(GetPerformanceLogQueue(), 512, server.view(), date.view,
                                               metric_id.view(), metric_value.view());
}

int Report_Log_Read_Write::WriteSystemEventLog(int level, const char* server_arg, const char* source_arg,
                                               const char* description_arg) {
  ScrubbedField server(server_arg), source(source_arg), description(description_arg);
  CurrentDate date;
  return PushRecord<bexo_report::kSystemEvent>(GetSystemEventLogQueue(), 4096, server.view(), date.view, level & 15,
                                               source.view(), description.view());
}

int Report_Log_Read_Write::WriteAppLog(const char* user_arg, const char* text2_arg, const char* text3_arg,
                                       int number1, int number2, unsigned unsigned1, unsigned unsigned2,
                                       long long counter1, long long counter2, time_t when, const char* last_arg) {
  ScrubbedField user(user_arg), text2(text2_arg), text3(text3_arg), last(last_arg);
  CurrentDate date;
  char when_text[32];
  string_view when_date(when_text, DateInto(when, when_text));
  return PushRecord<bexo_report::kApp>(GetAppLogQueue(), 2048, OrDefault(user.view(), kUnknown), date.view,
                                       text2.view(), text3.view(), number1, number2, unsigned1, unsigned2, counter1,
                                       counter2, when_date, last.view());
}

int Report_Log_Read_Write::WriteAppArmDashboardLog(unsigned application_id, long long first,
                                                   unsigned long long second) {
  CurrentDate date;
  LogQueue& queue = GetAppArdmDashboarLogQueue();
  // The identifier is printed with "%d", as the dashboard table expects.
  if (PushRecord<bexo_report::kDashboard>(queue, 2048, date.view, static_cast<int>(application_id), first, second) !=
      0) {
    return -1;
  }
  return queue.FlushLog() == 0 ? 1 : -1;
}
