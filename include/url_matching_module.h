// url_matching_module: the URL matcher of the gateway's daemons. It keeps two
// rule graphs, one for outbreak-prevention rules (policies 1 to 5) and one
// for user-defined rules (allow, block, BEXO block, pattern), loads and saves
// them as rule list files, and answers per request which rule matches a URL.
// An outbreak-prevention rule, even an expired one, wins over every
// user-defined rule.
//
// _to_lower_and_url_decode is the one normalisation every URL passes before
// it is stored, looked up or deleted.
//
// Thread safety: each graph has its own reader-writer lock; lookups run in
// parallel, additions are exclusive per graph. A load builds its rules aside
// and swaps them in at once, so lookups answer from the old rules meanwhile.
// find_entry takes the two graphs' read locks one after the other, never both
// at once.
#pragma once

#include <string>

#include "double_linked_graph.h"

class BEXO_EXPORT url_matching_module {
 public:
  url_matching_module() = default;

  // Stores `url` as given (callers pass normalised text). False for a policy
  // that belongs to neither graph (0, 10 to 70).
  bool add_entry(const char* url, policies policy, const char* identifier, const ux_Time* expiry);

  find_entry_results find_entry(const char* user_url, policies& policy, std::string& rule_url,
                                std::string& identifier, std::string& expiry, int& list_id,
                                bool delete_expired);

  int total_size() const;

  // Writes the outbreak-prevention graph to opp_path and the user-defined
  // graph to user_path; a null path is skipped.
  bool serialization(const char* opp_path, const char* user_path) const;
  // Loads opp_path (always clearing its graph first) and user_path (clearing
  // first only with clear_user); true when either load succeeded.
  bool deserialization(const char* opp_path, const char* user_path, bool translate,
                       bool clear_user);

  // Loads one database list into the user-defined graph, built aside and
  // published in one step: init, then deserialize_db. False when init fails; database
  // failures are thrown on (UxDbException).
  bool deserialization(int list_id, int list_type, const char* sql_path, UxDbAgent& agent);

  // Read access for tools and tests.
  const double_linked_graph& opp_graph() const { return opp_graph_; }
  const double_linked_graph& user_graph() const { return user_graph_; }

 private:
  double_linked_graph opp_graph_;
  double_linked_graph user_graph_;
};

// Lower-cases and percent-decodes `input_buffer` into `result_buffer`, turns
// backslashes into slashes, collapses slash runs, drops a leading slash and
// resolves "./" and "../" elements (never above the first element). "%25"
// chains decode to one character. With `decode_wildcards` false an escaped
// '*' or '?' stays escaped as "%2a" / "%3f". False, with nothing written,
// when `result_size` is not larger than the input's length.
BEXO_EXPORT bool _to_lower_and_url_decode(const char* input_buffer, char* result_buffer,
                                          int result_size, bool decode_wildcards);
