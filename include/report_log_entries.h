// Event records handed to the report writers and the syslog sender as one
// structure. Text members may be null. The meaning of free-form members is
// the calling daemon's; the writers copy them in the documented order.
#pragma once

// A cleanup service action.
struct kls_cleanuplog_entry {
  const char* uid = nullptr;
  const char* hostname = nullptr;
  const char* entity_name = nullptr;
  const char* entity_type = nullptr;
  const char* entity_subtype = nullptr;
  const char* function_code = nullptr;
};

// A request recognised as bot traffic.
struct bot_log_entry {
  const char* user = nullptr;
  const char* protocol = nullptr;
  const char* host = nullptr;  // the URL is built from protocol, host, port and path
  int port = 0;
  const char* path = nullptr;
  const char* entity_name = nullptr;
  const char* action = nullptr;
  const char* scan_type = nullptr;
  const char* rule_name = nullptr;
  const char* group_name = nullptr;
  const char* uid = nullptr;
  int filter_action = 0;
};

// The access information that the "WithAccessInfo" violation writers append
// after the first fifteen violation fields: the size, five texts (the fourth
// is always the domain of the request's host, so it is not passed here) and
// three integers, written in this order.
struct report_access_info {
  long long size = 0;
  const char* text1 = nullptr;  // width 50
  const char* text2 = nullptr;  // width 50
  const char* text3 = nullptr;  // width 50
  const char* text5 = nullptr;  // width 50
  int number1 = 0;
  int number2 = 0;
  int number3 = 0;
};
