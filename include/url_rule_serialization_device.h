// url_rule_serialization_device: a rule store that keeps the rules of a rule
// list file in per-policy queues, in file order and with duplicates, instead
// of a graph, so that a caller can read a file's rules one by one.
//
// Thread safety: as url_rule_serialization_io; get_entry removes entries and
// must not run concurrently with other calls on the same device.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <deque>
#include <string>

#include "src/API_legacy/include/url_rule_serialization_io"
#include "util_no_inadvertant_copies.h"

// One queued rule: its text, identifier and expiry text ("" when none) and
// list identifier.
struct BEXO_EXPORT url_rule_info_node {
  url_rule_info_node(const char* _url_rule, const char* identifier, const ux_Time* expiry,
                     int list_id);
  bool operator==(const url_rule_info_node& other) const;

  std::string url;
  std::string identifier;
  std::string expiry;
  int32_t list_id;
};

class BEXO_EXPORT url_rule_serialization_device : public url_rule_serialization_io,
                                                  private util_no_inadvertant_copies {
 public:
  url_rule_serialization_device() = default;
  ~url_rule_serialization_device() override;

  // Writes "RULE-->IDENTIFIER-->EXPIRY-->LIST_ID" per queued rule.
  void _printf_list(FILE* fp, policies policy) const override;
  // Appends to the policy's queue; always true.
  bool _add_entry(const char* url, policies policy, const char* identifier, const ux_Time* expiry,
                  int list_id) override;
  void clear() override;

  // Removes the oldest rule of `policy` and hands out its fields, valid until
  // the next get_entry or clear; false when the queue is empty.
  bool get_entry(policies policy, const char*& url, const char*& identifier, const char*& expiry,
                 int& list_id) const;

 private:
  mutable std::deque<url_rule_info_node> queues_[unknown_policy];
  mutable std::deque<url_rule_info_node> handed_out_;  // holds the last entry given
};
