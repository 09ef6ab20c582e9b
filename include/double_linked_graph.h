// double_linked_graph: a store of URL rules in a character trie whose nodes
// also point back to their parents. Each rule is a normalised URL text that
// may hold the wildcards '*' (any run, also none) and '?' (one character);
// "%2a" and "%3f" stand for a literal '*' and '?'. A lookup walks the trie
// depth first with backtracking and answers the first rule that consumes the
// whole URL, in the fixed order literal child, '?' child, '*' child. Nodes
// known to fail from an input position on are not tried again from there in
// the same lookup (urlmatch/fail_memo.h), so one lookup takes at most
// O(trie nodes entered x URL length) steps, whatever the stars in a rule.
//
// Memory: nodes and child arrays come from a shared pool of fixed-size
// blocks. A node is made together with its first child array (five slots),
// and a child array carries the children's characters beside their
// pointers, so a scan reads memory next to the node instead of every child.
//
// Thread safety: find_entry and size take the store's read lock, delete_entry
// its write lock; _add_entry, _printf_list and clear expect the caller to
// hold the lock (the matching module does). A whole-list load builds a new
// graph aside and swaps it in under the write lock in one step (see
// url_rule_serialization_io): a lookup racing a load answers wholly from the
// old rules or wholly from the new ones, and waits at most for the swap.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <new>
#include <string>
#include <vector>

#include "src/API_legacy/include/url_rule_serialization_io"
#include "util_no_inadvertant_copies.h"

namespace bexo_url {
class FailMemo;
}

// One character of one or more rule paths.
class BEXO_EXPORT node {
 public:
  static constexpr unsigned char kCapacityStep = 5;

  // A wildcard only when `literal` is false and `c` is '*' or '?'.
  node(char c, bool literal);
  ~node();  // destroys the subtree below
  node(const node&) = delete;
  node& operator=(const node&) = delete;

  // Nodes come from the block pool; the nothrow form answers null.
  static void* operator new(size_t size);
  static void* operator new(size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* block);

  // First child, in insertion order, with character `c` and literal flag `literal`.
  bool _find_child_node(char c, node*& found, unsigned char& index, bool literal) const {
    if (child_count_ == 0) return false;
    const char* keys = ChildKeys();
    // Only '*' and '?' children can be wildcards; any other character is
    // literal, so its node need not be read to check.
    const bool maybe_wildcard = c == '*' || c == '?';
    if (!maybe_wildcard && !literal) return false;
    for (unsigned char i = 0; i < child_count_; ++i) {
      if (keys[i] == c && (!maybe_wildcard || children_[i]->literal_ == literal)) {
        found = children_[i];
        index = i;
        return true;
      }
    }
    return false;
  }
  // Appends a new child (without looking for an existing one); false when
  // memory runs out or the node already has 255 children.
  bool add_child_node(char c, node*& created, bool literal);
  // Destroys the child and its subtree and closes the gap; false when none.
  bool delete_child_node(char c, bool literal);

  void set_policy_mode(policies policy, const char* identifier, const ux_Time* expiry,
                       int list_id);
  // Reports pattern_policy as block_policy; missing strings as "".
  bool get_policy_mode(policies& policy, std::string& identifier, std::string& expiry,
                       int& list_id) const;
  void clear_policy_mode();
  bool find_parent_node(node*& parent) const {
    parent = parent_;
    return parent_ != nullptr;
  }

  char character() const { return character_; }
  bool is_literal() const { return literal_; }
  bool is_star() const { return !literal_ && character_ == '*'; }
  bool has_policy() const { return has_policy_; }
  policies policy() const { return static_cast<policies>(policy_); }
  const char* expiry_text() const { return expiry_; }
  int path_count() const { return path_count_; }
  unsigned char child_count() const { return child_count_; }
  unsigned char child_capacity() const { return child_capacity_; }
  node* child(unsigned char index) const { return children_[index]; }
  node* parent() const { return parent_; }

 private:
  friend class double_linked_graph;

  // The child array block: capacity + 1 pointers (the last always null), then
  // the children's characters.
  const char* ChildKeys() const {
    return reinterpret_cast<const char*>(children_ + child_capacity_ + 1);
  }
  char* ChildKeys() { return reinterpret_cast<char*>(children_ + child_capacity_ + 1); }
  bool HasInlineChildren() const;  // the child array made together with the node
  void ReleaseChildren();

  char character_;
  bool literal_;
  bool has_policy_ = false;
  unsigned char child_capacity_ = kCapacityStep;
  unsigned char child_count_ = 0;
  int16_t policy_ = unknown_policy;
  int32_t list_id_ = 0;
  int32_t path_count_ = 0;
  char* identifier_ = nullptr;  // strdup'ed, released with free
  char* expiry_ = nullptr;      // ux_Time::print_out text, 20 characters
  node** children_ = nullptr;   // null until the first child
  node* parent_ = nullptr;
};

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
  void clear() override;
  // Loads go into a private graph (with a copy of the rules when keep_rules)
  // that _publish_load swaps in under the write lock; the old rules are
  // destroyed after the swap, outside the lock.
  url_rule_serialization_io* _begin_load(bool keep_rules) override;
  void _publish_load(url_rule_serialization_io* target) override;

  find_entry_results find_entry(const char* user_url, policies& policy, std::string& rule_url,
                                std::string& identifier, std::string& expiry, int& list_id,
                                bool delete_expired);
  bool _find_entry(const char* rule_url, node*& found, policies& policy, std::string& identifier,
                   std::string& expiry, int& list_id) const;
  bool delete_entry(const char* url, bool only_if_expired);

  // The node itself when it ends a rule, else its '*' child, else the '*'
  // child of its literal '/' child, when that ends a rule.
  bool _find_possible_policy_node(const node* p_node, node*& found) const;
  bool _get_rule_string_and_policy(const node* p_policy_node, std::string& rule_url,
                                   policies& policy, std::string& identifier, std::string& expiry,
                                   int& list_id) const;
  void _recursive_decrease_path_count(node* from);
  void _recursive_delete_parent_node(node* from);

  int size() const;
  // clear() also drops the rule with empty text, which ends at the root.
  void _clear(node* from);

  // Search steps (loop rounds) of the calling thread's last find_entry: at
  // most a small multiple of (trie nodes entered) x (URL length + 1).
  static int64_t last_find_steps();

 private:
  bool FailsFrom(const node* n, int p, const bexo_url::FailMemo& memo) const;
  // Adds the rule ending at `source` (of another graph) with its stored data.
  bool CopyRule(const node* source);

  node* root_;
  std::vector<node*> policy_nodes_[unknown_policy];
};

// Cuts `length` back over the last path element of `buffer` when it ends in
// "/"; the first element (the host) is never removed.
BEXO_EXPORT void _roll_back_to_parent_folder(const char* buffer, int& length);
