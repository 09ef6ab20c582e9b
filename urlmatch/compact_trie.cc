#include "urlmatch/compact_trie.h"

#include <string.h>

#include <algorithm>
#include <new>

namespace bexo_url {
namespace {

constexpr uint32_t kMaxRun = 0xFFFF;

// How a rule text names the next trie character.
struct RuleStep {
  char character;
  bool literal;
  int length;  // characters of the text consumed
};

RuleStep NextRuleStep(const char* text) {
  if (text[0] == '*' || text[0] == '?') return {text[0], false, 1};
  if (text[0] == '%' && text[1] == '2' && text[2] == 'a') return {'*', true, 3};
  if (text[0] == '%' && text[1] == '3' && text[2] == 'f') return {'?', true, 3};
  return {text[0], true, 1};
}

}  // namespace

CompactTrie::CompactTrie() : labels_("S"), strings_(1, '\0') {
  nodes_.push_back(Node{0, kNone, kNone, kNone, 1, 0, 0, 0, 'S'});
}

uint32_t CompactTrie::AddTexts(const char* identifier, const char* expiry) {
  if (identifier == nullptr && expiry == nullptr) return 0;
  const uint32_t offset = static_cast<uint32_t>(strings_.size());
  strings_.push_back(static_cast<char>((identifier != nullptr ? kHasIdentifier : 0) |
                                       (expiry != nullptr ? kHasExpiry : 0)));
  strings_.append(identifier != nullptr ? identifier : "").push_back('\0');
  strings_.append(expiry != nullptr ? expiry : "").push_back('\0');
  return offset;
}

const char* CompactTrie::Expiry(uint32_t rule) const {
  const uint32_t at = rules_[rule].texts;
  if (at == 0 || (strings_[at] & kHasExpiry) == 0) return nullptr;
  const char* identifier = &strings_[at + 1];
  return identifier + strlen(identifier) + 1;
}

uint32_t CompactTrie::AllocateBlock(uint8_t capacity_log) {
  std::vector<uint32_t>& free = free_blocks_[capacity_log];
  if (!free.empty()) {
    const uint32_t block = free.back();
    free.pop_back();
    return block;
  }
  const uint32_t capacity = 1u << capacity_log;
  const uint32_t block = static_cast<uint32_t>(kids_.size());
  kids_.resize(kids_.size() + KeyWords(capacity) + capacity);
  return block;
}

void CompactTrie::AddChild(uint32_t parent, uint32_t child) {
  const Node& c = nodes_[child];
  const bool wild = (c.flags & kWild) != 0;
  const char key = wild ? '\0' : c.first;
  const uint8_t flag = !wild ? 0 : c.first == '*' ? kStarChild : kQuestionChild;
  Node n = nodes_[parent];
  if (n.kids == kNone || n.count == (1u << n.capacity_log)) {
    const uint8_t log = n.kids == kNone ? 0 : n.capacity_log + 1;
    const uint32_t block = AllocateBlock(log);
    if (n.kids != kNone) {
      memcpy(&kids_[block], Keys(n), n.count);
      memcpy(&kids_[block + KeyWords(1u << log)], Indices(n), n.count * sizeof(uint32_t));
      free_blocks_[n.capacity_log].push_back(n.kids);
    }
    n.kids = block;
    n.capacity_log = log;
  }
  reinterpret_cast<char*>(&kids_[n.kids])[n.count] = key;
  kids_[n.kids + KeyWords(1u << n.capacity_log) + n.count] = child;
  ++n.count;
  n.flags |= flag;
  nodes_[parent] = n;
}

void CompactTrie::RemoveChild(uint32_t parent, uint32_t child) {
  Node& n = nodes_[parent];
  char* keys = reinterpret_cast<char*>(&kids_[n.kids]);
  uint32_t* indices = &kids_[n.kids + KeyWords(1u << n.capacity_log)];
  uint32_t i = 0;
  while (indices[i] != child) ++i;
  --n.count;
  keys[i] = keys[n.count];
  indices[i] = indices[n.count];
  const Node& c = nodes_[child];
  if ((c.flags & kWild) != 0) n.flags &= ~(c.first == '*' ? kStarChild : kQuestionChild);
  if (n.count == 0) {
    free_blocks_[n.capacity_log].push_back(n.kids);
    n.kids = kNone;
    n.capacity_log = 0;
  }
}

uint32_t CompactTrie::NewNode(uint32_t parent, char first, bool wild, uint32_t label,
                              uint32_t length) {
  const uint32_t index =
      StoreNode(Node{label, kNone, parent, kNone, static_cast<uint16_t>(length), 0, 0,
                     static_cast<uint8_t>(wild ? kWild : 0), first});
  AddChild(parent, index);
  return index;
}

uint32_t CompactTrie::StoreNode(const Node& made) {
  if (free_nodes_.empty()) {
    if (nodes_.size() >= kMaxNodes) throw std::bad_alloc();
    nodes_.push_back(made);
    return static_cast<uint32_t>(nodes_.size() - 1);
  }
  const uint32_t index = free_nodes_.back();
  free_nodes_.pop_back();
  nodes_[index] = made;
  return index;
}

void CompactTrie::Split(uint32_t node, uint32_t offset) {
  // Characters after `offset` move to a new node that takes over the
  // children and the rule; the kept part gets it as its only child.
  const Node n = nodes_[node];
  const uint32_t rest_label = n.label + offset + 1;
  const Node rest_node{rest_label, n.kids, node, n.rule,
                       static_cast<uint16_t>(n.length - offset - 1), n.count, n.capacity_log,
                       static_cast<uint8_t>(n.flags & (kStarChild | kQuestionChild)),
                       labels_[rest_label]};
  const uint32_t rest = StoreNode(rest_node);
  for (uint32_t i = 0; i < n.count; ++i) nodes_[Indices(n)[i]].parent = rest;
  if (n.rule != kNone) rules_[n.rule].end = rest;
  Node& kept = nodes_[node];
  kept.length = static_cast<uint16_t>(offset + 1);
  kept.kids = kNone;
  kept.count = 0;
  kept.capacity_log = 0;
  kept.flags &= kWild;
  kept.rule = kNone;
  AddChild(node, rest);
}

bool CompactTrie::Insert(const char* text, policies policy, const char* identifier,
                         const char* expiry, int32_t list_id) {
  try {
    Pos at = Root();
    while (*text != '\0') {
      RuleStep step = NextRuleStep(text);
      Pos next;
      if (Child(at, step.character, step.literal, &next)) {
        at = next;
        text += step.length;
        continue;
      }
      if (at.offset + 1u < nodes_[at.node].length) Split(at.node, at.offset);
      if (!step.literal) {
        at = Pos{NewNode(at.node, step.character, true, 0, 1), 0};
        text += step.length;
        continue;
      }
      // The rest of the text up to the next wildcard becomes one run.
      const uint32_t label = static_cast<uint32_t>(labels_.size());
      uint32_t length = 0;
      while (*text != '\0' && step.literal && length < kMaxRun) {
        labels_.push_back(step.character);
        ++length;
        text += step.length;
        step = NextRuleStep(text);
      }
      at = Pos{NewNode(at.node, labels_[label], false, label, length), length - 1};
    }
    if (at.offset + 1u < nodes_[at.node].length) Split(at.node, at.offset);
    Node& end = nodes_[at.node];
    if (end.rule == kNone) {
      const uint32_t texts = AddTexts(identifier, expiry);
      uint32_t rule;
      if (!free_rules_.empty()) {
        rule = free_rules_.back();
        free_rules_.pop_back();
      } else {
        rule = static_cast<uint32_t>(rules_.size());
        rules_.push_back(Rule{});
      }
      by_policy_[policy].push_back(rule);
      Rule& made = rules_[rule];
      made.end = at.node;
      made.policy = static_cast<uint32_t>(policy);
      made.texts = texts;
      made.list_id = list_id;
      nodes_[at.node].rule = rule;
      ++size_;
      return true;
    }
    // The same rule again: counted once, the newer data wins.
    Rule& r = rules_[end.rule];
    if (r.policy != static_cast<uint32_t>(policy)) {
      std::vector<uint32_t>& old_list = by_policy_[r.policy];
      old_list.erase(std::find(old_list.begin(), old_list.end(), end.rule));
      by_policy_[policy].push_back(end.rule);
    }
    r.texts = AddTexts(identifier, expiry);
    r.list_id = list_id;
    r.policy = static_cast<uint32_t>(policy);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

uint32_t CompactTrie::Find(const char* text) const {
  Pos at = Root();
  while (*text != '\0') {
    const RuleStep step = NextRuleStep(text);
    if (!Child(at, step.character, step.literal, &at)) return kNone;
    text += step.length;
  }
  return RuleAt(at);
}

void CompactTrie::Erase(uint32_t rule) {
  std::vector<uint32_t>& list = by_policy_[rules_[rule].policy];
  list.erase(std::find(list.begin(), list.end(), rule));
  uint32_t node = rules_[rule].end;
  nodes_[node].rule = kNone;
  free_rules_.push_back(rule);
  --size_;
  // Free the nodes left without rule or child, from the end up.
  while (node != 0 && nodes_[node].rule == kNone && nodes_[node].count == 0) {
    const uint32_t parent = nodes_[node].parent;
    RemoveChild(parent, node);
    free_nodes_.push_back(node);
    node = parent;
  }
}

void CompactTrie::Text(uint32_t rule, std::string& text) const {
  // Sized first, then filled from the end: a literal '*' or '?' is written
  // as its escape, three characters.
  size_t size = 0;
  for (uint32_t node = rules_[rule].end; node != 0; node = nodes_[node].parent) {
    const Node& n = nodes_[node];
    size += n.length;
    if ((n.flags & kWild) != 0) continue;
    for (uint32_t i = 0; i < n.length; ++i) {
      const char c = labels_[n.label + i];
      if (c == '*' || c == '?') size += 2;
    }
  }
  text.resize(size);
  char* out = &text[0] + size;
  for (uint32_t node = rules_[rule].end; node != 0; node = nodes_[node].parent) {
    const Node& n = nodes_[node];
    if ((n.flags & kWild) != 0) {
      *--out = n.first;
      continue;
    }
    for (uint32_t i = n.length; i-- > 0;) {
      const char c = labels_[n.label + i];
      if (c == '*' || c == '?') {
        out -= 3;
        memcpy(out, c == '*' ? "%2a" : "%3f", 3);
      } else {
        *--out = c;
      }
    }
  }
}

void CompactTrie::Compact() {
  // Lay the trie out again in depth-first order: the nodes, labels and child
  // blocks of a subtree then sit together, each block holds no more room than
  // it needs, and what splits and removals left behind is gone.
  std::vector<Node> nodes;
  nodes.reserve(nodes_.size() - free_nodes_.size());
  std::string labels;
  labels.reserve(labels_.size());
  std::vector<uint32_t> kids;
  kids.reserve(kids_.size());
  auto allocate = [&kids](uint8_t capacity_log) {
    const uint32_t block = static_cast<uint32_t>(kids.size());
    kids.resize(kids.size() + KeyWords(1u << capacity_log) + (1u << capacity_log));
    return block;
  };
  std::vector<std::pair<uint32_t, uint32_t>> todo{{0, kNone}};  // old index, new parent
  while (!todo.empty()) {
    const uint32_t old = todo.back().first, parent = todo.back().second;
    todo.pop_back();
    const Node& n = nodes_[old];
    const uint32_t index = static_cast<uint32_t>(nodes.size());
    Node made = n;
    made.parent = parent;
    if ((n.flags & kWild) == 0) {
      made.label = static_cast<uint32_t>(labels.size());
      labels.append(labels_, n.label, n.length);
    }
    made.kids = kNone;
    made.count = 0;
    made.capacity_log = 0;
    if (n.count > 0) {
      while ((1u << made.capacity_log) < n.count) ++made.capacity_log;
      made.kids = allocate(made.capacity_log);
    }
    if (n.rule != kNone) rules_[n.rule].end = index;
    nodes.push_back(made);
    if (parent != kNone) {
      Node& up = nodes[parent];
      reinterpret_cast<char*>(&kids[up.kids])[up.count] = (n.flags & kWild) != 0 ? '\0' : n.first;
      kids[up.kids + KeyWords(1u << up.capacity_log) + up.count] = index;
      ++up.count;
    }
    for (uint32_t i = n.count; i-- > 0;) todo.emplace_back(Indices(n)[i], index);
  }
  nodes_.swap(nodes);
  labels_.swap(labels);
  kids_.swap(kids);
  free_nodes_.clear();
  for (std::vector<uint32_t>& free : free_blocks_) free.clear();
  nodes_.shrink_to_fit();
  labels_.shrink_to_fit();
  kids_.shrink_to_fit();
  rules_.shrink_to_fit();
  strings_.shrink_to_fit();
  for (std::vector<uint32_t>& list : by_policy_) list.shrink_to_fit();
}

}  // namespace bexo_url
