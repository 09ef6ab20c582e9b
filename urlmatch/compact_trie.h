// CompactTrie: the storage of a URL rule graph. The graph's model is a trie of
// one node per rule character; here runs of literal characters without a
// branch or a rule end in between share one node, whose characters sit in a
// label arena, and wildcards ('*', '?') are nodes of their own. A character of
// the model trie is a Pos: a node and an offset into its run. Nodes and rules
// live in arenas addressed by 32-bit indices; the data of a rule (policy,
// identifier, expiry, list identifier) sits in a side table read only when a
// rule is reported. A node's children sit in one block of their first
// characters and indices, so finding a child reads one or two cache lines.
//
// How the model maps onto it: a model node's character, literal flag and
// children are Pos operations (Child, IsStar); its parent is Parent(); its
// policy, identifier, expiry and list identifier are the rule the Pos ends
// (RuleAt); the path count of the root is Size(). Removing a rule frees the
// nodes left without rule or child; runs are not merged again (a reload builds
// a fresh, compact trie).
//
// Thread safety: none; the graph guards it with its lock. Copyable (a load
// that keeps the rules starts from a copy).
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "url_policies.h"

namespace bexo_url {

constexpr uint32_t kNone = 0xFFFFFFFFu;

struct Pos {
  uint32_t node;
  uint32_t offset;  // into the node's run of characters
};

class CompactTrie {
 public:
  CompactTrie();

  static Pos Root() { return Pos{0, 0}; }
  static bool IsRoot(Pos at) { return at.node == 0; }
  // The child character `c`, wildcard or literal as asked.
  bool Child(Pos at, char c, bool literal, Pos* found) const {
    const Node& n = nodes_[at.node];
    if (at.offset + 1 < n.length) {
      if (!literal || labels_[n.label + at.offset + 1] != c) return false;
      *found = Pos{at.node, at.offset + 1};
      return true;
    }
    // Literal children are keyed by their first character, wildcards by NUL
    // (which no rule text holds); the flags say whether a wildcard is there.
    if (n.count == 0) return false;
    char key = c;
    if (!literal) {
      if ((n.flags & (c == '*' ? kStarChild : kQuestionChild)) == 0) return false;
      key = '\0';
    }
    const char* keys = Keys(n);
    for (uint32_t i = 0; i < n.count; ++i) {
      if (keys[i] != key) continue;
      const uint32_t child = Indices(n)[i];
      if (literal || nodes_[child].first == c) {
        *found = Pos{child, 0};
        return true;
      }
    }
    return false;
  }
  Pos Parent(Pos at) const {
    if (at.offset > 0) return Pos{at.node, at.offset - 1};
    const uint32_t up = nodes_[at.node].parent;
    return Pos{up, nodes_[up].length - 1u};
  }
  // Inside a run: the only child is the run's next literal character.
  bool InRun(Pos at) const { return at.offset + 1u < nodes_[at.node].length; }
  char NextInRun(Pos at) const { return labels_[nodes_[at.node].label + at.offset + 1]; }
  bool IsStar(Pos at) const {
    return (nodes_[at.node].flags & kWild) != 0 && nodes_[at.node].first == '*';
  }
  // The rule that ends at `at`, or kNone.
  uint32_t RuleAt(Pos at) const {
    const Node& n = nodes_[at.node];
    return at.offset + 1u == n.length ? n.rule : kNone;
  }
  // Calls visit(child, is_star) for each child of `at` until it answers false;
  // answers whether every call answered true.
  template <typename Visit>
  bool EveryChild(Pos at, Visit visit) const {
    const Node& n = nodes_[at.node];
    if (at.offset + 1 < n.length) return visit(Pos{at.node, at.offset + 1}, false);
    for (uint32_t i = 0; i < n.count; ++i) {
      if (!visit(Pos{Indices(n)[i], 0}, IsStar(Pos{Indices(n)[i], 0}))) return false;
    }
    return true;
  }
  static uint64_t Key(Pos at) { return (static_cast<uint64_t>(at.node) << 32) | at.offset; }

  // Inserts or updates the rule with this text ("%2a" and "%3f" are literal
  // '*' and '?'); expiry is print_out text or null. False when out of memory
  // or nodes (at most 2^25, some 20 million rules).
  bool Insert(const char* text, policies policy, const char* identifier, const char* expiry,
              int32_t list_id);
  // The rule with exactly this text, or kNone.
  uint32_t Find(const char* text) const;
  void Erase(uint32_t rule);

  // The rule's text, as stored ("%2a", "%3f" for literal '*', '?').
  void Text(uint32_t rule, std::string& text) const;
  policies Policy(uint32_t rule) const { return static_cast<policies>(rules_[rule].policy); }
  int32_t ListId(uint32_t rule) const { return rules_[rule].list_id; }
  const char* Identifier(uint32_t rule) const {
    const uint32_t at = rules_[rule].texts;
    return at != 0 && (strings_[at] & kHasIdentifier) != 0 ? &strings_[at + 1] : nullptr;
  }
  const char* Expiry(uint32_t rule) const;
  // Rules of one policy in insertion order.
  const std::vector<uint32_t>& RulesOf(int policy) const { return by_policy_[policy]; }
  int Size() const { return size_; }
  // Lays the trie out again compactly, in depth-first order (after a load).
  void Compact();

 private:
  enum : uint8_t { kWild = 1, kStarChild = 2, kQuestionChild = 4 };
  struct Node {
    uint32_t label;   // first character of the run in labels_
    uint32_t kids;    // the child block in kids_, kNone when none
    uint32_t parent;
    uint32_t rule;    // the rule ending at the run's last character
    uint16_t length;  // characters in the run
    uint16_t count;   // children
    uint8_t capacity_log;  // the child block has room for 1 << capacity_log
    uint8_t flags;    // kWild for a '*' or '?' (runs of one); wildcard children
    char first;       // the run's first character
  };
  static constexpr uint32_t kMaxNodes = 1u << 25;  // node indices fit 25 bits
  struct Rule {
    uint32_t end : 25;    // node whose run it ends
    uint32_t policy : 7;  // below unknown_policy (71)
    uint32_t texts;       // identifier and expiry in strings_; 0 when neither
    int32_t list_id;
  };
  // A rule's texts: a byte of these flags, the identifier and its NUL, the
  // expiry and its NUL (each empty when absent).
  enum : char { kHasIdentifier = 1, kHasExpiry = 2 };
  // A child block of capacity C: C key bytes in (C + 3) / 4 words, then C
  // node indices, so a scan reads one or two cache lines.
  static uint32_t KeyWords(uint32_t capacity) { return (capacity + 3) / 4; }
  const char* Keys(const Node& n) const {
    return reinterpret_cast<const char*>(kids_.data() + n.kids);
  }
  const uint32_t* Indices(const Node& n) const {
    return kids_.data() + n.kids + KeyWords(1u << n.capacity_log);
  }
  uint32_t AllocateBlock(uint8_t capacity_log);
  void AddChild(uint32_t parent, uint32_t child);
  void RemoveChild(uint32_t parent, uint32_t child);

  uint32_t AddTexts(const char* identifier, const char* expiry);
  uint32_t StoreNode(const Node& made);  // in a free slot or at the end
  uint32_t NewNode(uint32_t parent, char first, bool wild, uint32_t label, uint32_t length);
  void Split(uint32_t node, uint32_t offset);

  std::vector<Node> nodes_;
  std::vector<uint32_t> free_nodes_;
  std::vector<uint32_t> kids_;
  std::vector<uint32_t> free_blocks_[10];  // by capacity_log
  std::string labels_;
  std::vector<Rule> rules_;
  std::vector<uint32_t> free_rules_;
  std::string strings_;  // the rules' texts
  std::vector<uint32_t> by_policy_[unknown_policy];
  int size_ = 0;
};

}  // namespace bexo_url
