// find_entry over fuzzed rule sets: the input is rule lines, an empty line,
// then URLs. Every lookup ends within its step bound and reports only stored
// rules, and deletion keeps the rule count right.
//
// Rules may hold up to 30 stars and URLs up to 1023 bytes (the longest that is
// normalised): a lookup takes at most a few steps per trie node and input
// position, however the stars are placed.
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "double_linked_graph.h"
#include "url_matching_module.h"

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  constexpr size_t kMaxStars = 30, kMaxUrl = 1023;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> rules, urls;
  bool in_urls = false;
  for (const std::string& line : Lines(text)) {
    if (line.empty()) {
      in_urls = true;
    } else if (in_urls) {
      if (line.size() <= kMaxUrl) urls.push_back(line);
    } else {
      std::string rule = line.c_str();  // up to an embedded NUL, as a C string would be
      if (static_cast<size_t>(std::count(rule.begin(), rule.end(), '*')) <= kMaxStars) {
        rules.push_back(rule);
      }
    }
  }
  double_linked_graph graph;
  std::set<std::string> stored;
  int64_t trie_nodes = 1;  // at most one per rule character, and the root
  {
    UrlRuleWriteGuard hold(graph.rule_lock());
    for (size_t i = 0; i < rules.size(); ++i) {
      if (rules[i].empty()) continue;
      graph._add_entry(rules[i].c_str(), static_cast<policies>(6 + i % 4), nullptr, nullptr, 0);
      stored.insert(rules[i]);
      trie_nodes += static_cast<int64_t>(rules[i].size());
    }
  }
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  for (const std::string& url : urls) {
    const find_entry_results r =
        graph.find_entry(url.c_str(), policy, rule, id, expiry, list_id, false);
    if (double_linked_graph::last_find_steps() >
        4 * trie_nodes * (static_cast<int64_t>(url.size()) + 1)) {
      abort();
    }
    // a reported rule is stored: its text rebuilt from the trie finds it again exactly
    if (r != entry_not_found &&
        (stored.count(rule) == 0 ||
         !graph._find_entry(rule.c_str(), policy, id, expiry, list_id))) {
      abort();
    }
  }
  // deleting the rules that delete_entry can name (texts that normalisation
  // keeps) leaves exactly the others
  int kept = static_cast<int>(stored.size());
  for (const std::string& r : stored) {
    char normal[1024];
    if (!_to_lower_and_url_decode(r.c_str(), normal, sizeof normal, false) || r != normal) {
      continue;
    }
    if (!graph.delete_entry(r.c_str(), false)) abort();
    --kept;
  }
  if (graph.size() != kept) abort();
  if (kept == 0) {
    for (const std::string& url : urls) {
      if (graph.find_entry(url.c_str(), policy, rule, id, expiry, list_id, false) !=
          entry_not_found) {
        abort();
      }
    }
  }
  return 0;
}
