#include "url_rule_serialization_device.h"

url_rule_info_node::url_rule_info_node(const char* _url_rule, const char* identifier_text,
                                       const ux_Time* expiry_time, int list)
    : list_id(list) {
  URL_RULE_ASSERT(_url_rule);
  url = _url_rule;
  if (identifier_text != nullptr) identifier = identifier_text;
  if (expiry_time != nullptr) expiry = expiry_time->to_string();
}

bool url_rule_info_node::operator==(const url_rule_info_node& other) const {
  return url == other.url && identifier == other.identifier && expiry == other.expiry &&
         list_id == other.list_id;
}

url_rule_serialization_device::~url_rule_serialization_device() = default;

void url_rule_serialization_device::_printf_list(FILE* fp, policies policy) const {
  URL_RULE_ASSERT(fp);
  URL_RULE_ASSERT(policy < unknown_policy);
  for (const url_rule_info_node& entry : queues_[policy]) {
    fprintf(fp, "%s-->%s-->%s-->%d\n", entry.url.c_str(), entry.identifier.c_str(),
            entry.expiry.c_str(), entry.list_id);
  }
}

bool url_rule_serialization_device::_add_entry(const char* url, policies policy,
                                               const char* identifier, const ux_Time* expiry,
                                               int list_id) {
  URL_RULE_ASSERT(policy < unknown_policy);
  queues_[policy].emplace_back(url, identifier, expiry, list_id);
  return true;
}

void url_rule_serialization_device::clear() {
  for (auto& queue : queues_) queue.clear();
  handed_out_.clear();
}

bool url_rule_serialization_device::get_entry(policies policy, const char*& url,
                                              const char*& identifier, const char*& expiry,
                                              int& list_id) const {
  if (policy < 0 || policy >= unknown_policy || queues_[policy].empty()) return false;
  handed_out_.clear();
  handed_out_.push_back(std::move(queues_[policy].front()));
  queues_[policy].pop_front();
  const url_rule_info_node& entry = handed_out_.front();
  url = entry.url.c_str();
  identifier = entry.identifier.c_str();
  expiry = entry.expiry.c_str();
  list_id = entry.list_id;
  return true;
}
