// double_linked_graph: a store of URL rules in a character trie. Each rule is
// a normalised URL text that may hold the wildcards '*' (any run, also none)
// and '?' (one character); "%2a" and "%3f" stand for a literal '*' and '?'. A
// lookup walks the trie depth first with backtracking and answers the first
// rule that consumes the whole URL, in the fixed order literal child, '?'
// child, '*' child. Characters of the trie known to fail from an input
// position on are not tried again from there in the same lookup
// (urlmatch/fail_memo.h), so one lookup takes at most O(trie characters
// entered x URL length) steps, whatever the stars in a rule.
//
// Storage (urlmatch/compact_trie.h): runs of literal characters without a
// branch share one node and a label arena, nodes and rules live in arenas of
// 32-bit indices, and a rule's policy, identifier, expiry and list identifier
// sit in a side table read only when the rule is reported. The trie of one
// node per character that the matching steps talk about is a view of it: a
// character is a node and an offset into its run.
//
// Thread safety: find_entry and size take the store's read lock, delete_entry
// its write lock; _add_entry, _printf_list and clear expect the caller to
// hold the lock (the matching module does). A whole-list load builds a new
// trie aside and swaps it in under the write lock in one step (see
// url_rule_serialization_io): a lookup racing a load answers wholly from the
// old rules or wholly from the new ones, and waits at most for the swap.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <mutex>
#include <string>

#include "src/API_legacy/include/url_rule_serialization_io"
#include "util_no_inadvertant_copies.h"

namespace bexo_url {
class CompactTrie;
class FailMemo;
struct Pos;
}  // namespace bexo_url

// One level of the lookup's backtracking stack.
struct state_variables {
  bool tried_literal = false;
  bool tried_question_mark = false;
  bool tried_star = false;
  int32_t star_count = 0;
};

class BEXO_EXPORT double_linked_graph : public url_rule_serialization_io,
                                        private util_no_inadvertant_copies {
 public:
  double_linked_graph();
  ~double_linked_graph() override;

  void _printf_list(FILE* fp, policies policy) const override;
  bool _add_entry(const char* url, policies policy, const char* identifier, const ux_Time* expiry,
                  int list_id) override;
  // Drops every rule, the one with empty text included.
  void clear() override;
  // Loads go into a private trie (with a copy of the rules when keep_rules)
  // that _publish_load swaps in under the write lock; the old rules are
  // destroyed after the swap, outside the lock. A second load waits in
  // _begin_load until the first is published; lookups never wait for it.
  url_rule_serialization_io* _begin_load(bool keep_rules) override;
  void _publish_load(url_rule_serialization_io* target) override;

  find_entry_results find_entry(const char* user_url, policies& policy, std::string& rule_url,
                                std::string& identifier, std::string& expiry, int& list_id,
                                bool delete_expired);
  // Exact lookup of a rule text; reports pattern_policy as block_policy.
  bool _find_entry(const char* rule_url, policies& policy, std::string& identifier,
                   std::string& expiry, int& list_id) const;
  bool delete_entry(const char* url, bool only_if_expired);

  int size() const;

  // Search steps (loop rounds) of the calling thread's last find_entry: at
  // most a small multiple of (trie characters entered) x (URL length + 1).
  static int64_t last_find_steps();

 private:
  // The character itself when it ends a rule, else its '*' child, else the
  // '*' child of its literal '/' child, when that ends a rule.
  bool PossiblePolicy(const bexo_url::Pos& at, bexo_url::Pos* found) const;
  bool FailsFrom(const bexo_url::Pos& at, int p, const bexo_url::FailMemo& memo) const;
  void Report(uint32_t rule, std::string& rule_url, policies& policy, std::string& identifier,
              std::string& expiry, int& list_id) const;

  bexo_url::CompactTrie* trie_;
  std::mutex load_mutex_;  // held from _begin_load to _publish_load
};

// Cuts `length` back over the last path element of `buffer` when it ends in
// "/"; the first element (the host) is never removed.
BEXO_EXPORT void _roll_back_to_parent_folder(const char* buffer, int& length);
