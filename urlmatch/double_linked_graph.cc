#include "double_linked_graph.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <deque>

#include "url_matching_module.h"
#include "urlmatch/node_pool.h"
#include "urlmatch/fail_memo.h"

namespace {

constexpr int kUrlBufferSize = 1024;

size_t ChildBlockSize(unsigned capacity) {
  // capacity pointers, the closing null, then one key byte per child
  return (capacity + 1) * sizeof(node*) + capacity;
}

// How a rule text names the next trie node.
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

thread_local int64_t g_last_find_steps = 0;

bool ExpiryHasPassed(const char* expiry_text) {
  ux_Time now, expiry;
  now.get_current_time();
  try {
    expiry.set_to_string_value(expiry_text);
  } catch (const UXX_illegal_argument&) {
    return true;  // unreadable expiry: the stored text never came from print_out
  }
  return now.compare_time(expiry) >= 0;
}

}  // namespace

// ---- node ------------------------------------------------------------------

namespace {

// A node is allocated with room for its first child array right behind it,
// so that a lookup finds a node's child keys at an address it already knows
// instead of behind a second pointer. The constructor adopts that room when
// the node was made by operator new on this thread; a node built elsewhere
// (on the stack) allocates its child array separately.
constexpr size_t kInlineBlockSize = (node::kCapacityStep + 1) * sizeof(node*) + 8;
thread_local void* g_fresh_inline_block = nullptr;

void* AllocateNode(size_t size) {
  char* block = static_cast<char*>(bexo_url::PoolAllocate(size + kInlineBlockSize));
  if (block != nullptr) g_fresh_inline_block = block + size;
  return block;
}

}  // namespace

void* node::operator new(size_t size) {
  void* block = AllocateNode(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* node::operator new(size_t size, const std::nothrow_t&) noexcept {
  return AllocateNode(size);
}

void node::operator delete(void* block) {
  bexo_url::PoolRelease(block, sizeof(node) + kInlineBlockSize);
}

node::node(char c, bool literal)
    : character_(c), literal_(literal || (c != '*' && c != '?')) {
  if (g_fresh_inline_block == reinterpret_cast<char*>(this) + sizeof(node)) {
    children_ = static_cast<node**>(g_fresh_inline_block);
    std::fill(children_, children_ + child_capacity_ + 1, nullptr);
    g_fresh_inline_block = nullptr;
  }
}

bool node::HasInlineChildren() const {
  return reinterpret_cast<const char*>(children_) == reinterpret_cast<const char*>(this) + sizeof(node);
}

void node::ReleaseChildren() {
  if (children_ != nullptr && !HasInlineChildren()) {
    bexo_url::PoolRelease(children_, ChildBlockSize(child_capacity_));
  }
}

node::~node() {
  for (unsigned char i = 0; i < child_count_; ++i) delete children_[i];
  ReleaseChildren();
  free(identifier_);
  delete[] expiry_;
}

bool node::add_child_node(char c, node*& created, bool literal) {
  if (children_ == nullptr || child_count_ == child_capacity_) {
    const unsigned capacity =
        children_ == nullptr ? child_capacity_ : child_capacity_ + kCapacityStep;
    if (capacity > 255) return false;
    node** grown = static_cast<node**>(bexo_url::PoolAllocate(ChildBlockSize(capacity)));
    if (grown == nullptr) return false;
    char* keys = reinterpret_cast<char*>(grown + capacity + 1);
    if (children_ != nullptr) {
      memcpy(grown, children_, child_count_ * sizeof(node*));
      memcpy(keys, ChildKeys(), child_count_);
      ReleaseChildren();
    }
    std::fill(grown + child_count_, grown + capacity + 1, nullptr);
    children_ = grown;
    child_capacity_ = static_cast<unsigned char>(capacity);
  }
  node* child = new (std::nothrow) node(c, literal);
  if (child == nullptr) return false;
  child->parent_ = this;
  children_[child_count_] = child;
  ChildKeys()[child_count_] = c;
  ++child_count_;
  created = child;
  return true;
}

bool node::delete_child_node(char c, bool literal) {
  node* found;
  unsigned char index;
  if (!_find_child_node(c, found, index, literal)) return false;
  delete found;
  char* keys = ChildKeys();
  for (unsigned char i = index; i + 1 < child_count_; ++i) {
    children_[i] = children_[i + 1];
    keys[i] = keys[i + 1];
  }
  --child_count_;
  children_[child_count_] = nullptr;
  return true;
}

void node::set_policy_mode(policies _policy, const char* identifier, const ux_Time* expiry,
                           int list_id) {
  URL_RULE_ASSERT(_policy < unknown_policy);
  policy_ = static_cast<int16_t>(_policy);
  free(identifier_);
  identifier_ = identifier != nullptr ? strdup(identifier) : nullptr;
  if (expiry != nullptr) {
    if (expiry_ == nullptr) expiry_ = new char[ux_Time::kTextSize];
    expiry->print_out(expiry_, ux_Time::kTextSize);
  } else {
    delete[] expiry_;
    expiry_ = nullptr;
  }
  list_id_ = list_id;
  has_policy_ = true;
}

bool node::get_policy_mode(policies& policy, std::string& identifier, std::string& expiry,
                           int& list_id) const {
  if (!has_policy_ || policy_ >= unknown_policy) return false;
  policy = policy_ == pattern_policy ? block_policy : static_cast<policies>(policy_);
  if (identifier_ != nullptr) {
    identifier.assign(identifier_);
  } else {
    identifier.clear();
  }
  if (expiry_ != nullptr) {
    expiry.assign(expiry_);
  } else {
    expiry.clear();
  }
  list_id = list_id_;
  return true;
}

void node::clear_policy_mode() {
  has_policy_ = false;
  policy_ = unknown_policy;
  free(identifier_);
  identifier_ = nullptr;
  delete[] expiry_;
  expiry_ = nullptr;
}

// ---- double_linked_graph ---------------------------------------------------

double_linked_graph::double_linked_graph() : root_(new node('S', true)) {}

double_linked_graph::~double_linked_graph() {
  clear();
  delete root_;
}

bool double_linked_graph::_add_entry(const char* url, policies policy, const char* identifier,
                                     const ux_Time* expiry, int list_id) {
  URL_RULE_ASSERT(policy < unknown_policy);
  const char* policy_url = url;
  URL_RULE_ASSERT(policy_url);
  node* current = root_;
  for (const char* text = url; *text != '\0';) {
    const RuleStep step = NextRuleStep(text);
    node* next;
    unsigned char index;
    if (!current->_find_child_node(step.character, next, index, step.literal) &&
        !current->add_child_node(step.character, next, step.literal)) {
      return false;
    }
    current = next;
    text += step.length;
  }
  // Count the new path from its end up to the root.
  for (node* walk = current; walk != root_; walk = walk->parent_) ++walk->path_count_;
  ++root_->path_count_;

  if (!current->has_policy_) {
    current->set_policy_mode(policy, identifier, expiry, list_id);
    policy_nodes_[policy].push_back(current);
    return true;
  }
  // The same rule again: counted once, the newer data wins.
  _recursive_decrease_path_count(current);
  const policies old_policy = current->policy();
  current->set_policy_mode(policy, identifier, expiry, list_id);
  if (old_policy != policy) {
    std::vector<node*>& old_list = policy_nodes_[old_policy];
    old_list.erase(std::find(old_list.begin(), old_list.end(), current));
    policy_nodes_[policy].push_back(current);
  }
  return true;
}

bool double_linked_graph::CopyRule(const node* source) {
  std::vector<const node*> path;  // below the root, from the end up
  for (const node* walk = source; walk->parent_ != nullptr; walk = walk->parent_) {
    path.push_back(walk);
  }
  node* current = root_;
  for (auto step = path.rbegin(); step != path.rend(); ++step) {
    node* next;
    unsigned char index;
    if (!current->_find_child_node((*step)->character_, next, index, (*step)->literal_) &&
        !current->add_child_node((*step)->character_, next, (*step)->literal_)) {
      return false;
    }
    current = next;
  }
  for (node* walk = current; walk != nullptr; walk = walk->parent_) ++walk->path_count_;
  current->has_policy_ = true;
  current->policy_ = source->policy_;
  current->list_id_ = source->list_id_;
  if (source->identifier_ != nullptr) current->identifier_ = strdup(source->identifier_);
  if (source->expiry_ != nullptr) {
    current->expiry_ = new char[ux_Time::kTextSize];
    memcpy(current->expiry_, source->expiry_, ux_Time::kTextSize);
  }
  policy_nodes_[source->policy_].push_back(current);
  return true;
}

url_rule_serialization_io* double_linked_graph::_begin_load(bool keep_rules) {
  double_linked_graph* target = new double_linked_graph;
  if (keep_rules) {
    UrlRuleReadGuard hold(lock_);
    for (const std::vector<node*>& list : policy_nodes_) {
      for (const node* rule : list) target->CopyRule(rule);
    }
  }
  return target;
}

void double_linked_graph::_publish_load(url_rule_serialization_io* target) {
  double_linked_graph* loaded = dynamic_cast<double_linked_graph*>(target);
  URL_RULE_ASSERT(loaded != nullptr && loaded != this);
  {
    UrlRuleWriteGuard hold(lock_);
    std::swap(root_, loaded->root_);
    for (int p = 0; p < unknown_policy; ++p) policy_nodes_[p].swap(loaded->policy_nodes_[p]);
  }
  delete loaded;  // the old rules, after the last lookup that could see them
}

bool double_linked_graph::_find_entry(const char* rule_url, node*& found, policies& policy,
                                      std::string& identifier, std::string& expiry,
                                      int& list_id) const {
  node* current = root_;
  for (const char* text = rule_url; *text != '\0';) {
    RuleStep step = NextRuleStep(text);
    node* next;
    unsigned char index;
    if (!current->_find_child_node(step.character, next, index, step.literal)) return false;
    current = next;
    text += step.length;
  }
  if (!current->get_policy_mode(policy, identifier, expiry, list_id)) return false;
  found = current;
  return true;
}

bool double_linked_graph::_find_possible_policy_node(const node* p_node, node*& found) const {
  URL_RULE_ASSERT(p_node);
  if (p_node->has_policy_) {
    found = const_cast<node*>(p_node);
    return true;
  }
  node* child;
  unsigned char index;
  if (p_node->_find_child_node('*', child, index, false) && child->has_policy_) {
    found = child;
    return true;
  }
  node* slash;
  if (p_node->_find_child_node('/', slash, index, true) &&
      slash->_find_child_node('*', child, index, false) && child->has_policy_) {
    found = child;
    return true;
  }
  return false;
}

namespace {

uintptr_t Key(const node* n) { return reinterpret_cast<uintptr_t>(n); }

}  // namespace

// True when the search at `n` with fresh alternatives fails at position `p`
// and every later one: `n` leads to no possible rule and each child is known
// to fail from where it would start (a '*' child at p, any other at p + 1).
bool double_linked_graph::FailsFrom(const node* n, int p, const bexo_url::FailMemo& memo) const {
  node* possible;
  if (_find_possible_policy_node(n, possible)) return false;
  for (unsigned char i = 0; i < n->child_count_; ++i) {
    const node* c = n->children_[i];
    if (p + !c->is_star() < memo.FailFrom(Key(c))) return false;
  }
  return true;
}

find_entry_results double_linked_graph::find_entry(const char* user_url, policies& policy,
                                                   std::string& rule_url,
                                                   std::string& identifier, std::string& expiry,
                                                   int& list_id, bool delete_expired) {
  URL_RULE_ASSERT(user_url);
  // Reused per thread: the stack keeps its first block, so a lookup allocates nothing.
  thread_local std::deque<state_variables> stack;

  char buffer[kUrlBufferSize];
  const char* url = buffer;
  g_last_find_steps = 0;
  {
    UrlRuleReadGuard hold(lock_);
    if (root_->path_count_ == 0) return entry_not_found;
    // Too long to normalise: matched as given, without lower-casing.
    if (!_to_lower_and_url_decode(user_url, buffer, kUrlBufferSize, true)) url = user_url;

    stack.clear();
    stack.emplace_back();
    state_variables* top = &stack.back();  // refreshed after every push and pop
    bexo_url::FailMemo& memo = bexo_url::FailMemo::ForNewLookup();
    node* current = root_;
    int p = 0;
    int64_t steps = 0;
    node* child;
    node* possible;
    unsigned char index;
    bool found_rule = true;
    while (url[p] != '\0') {
      ++steps;
      const char c = url[p];
      const bool last = url[p + 1] == '\0';
      bool advanced = false;
      bool found = false;
      if (!top->tried_literal) {
        top->tried_literal = true;
        found = current->_find_child_node(c, child, index, true);
      }
      if (!found && !top->tried_question_mark) {
        top->tried_question_mark = true;
        found = current->_find_child_node('?', child, index, false);
      }
      if (!found && !top->tried_star) {
        top->tried_star = true;
        found = current->_find_child_node('*', child, index, false);
      }
      // A child found at the last character that leads to no rule ends the
      // tries of this state: its '?' and '*' siblings are not looked at.
      if (found && (!last || _find_possible_policy_node(child, possible))) {
        // A child known to fail from where it would start: the search would
        // try it and come back to this state unchanged.
        if (!memo.empty() && p + !child->is_star() >= memo.FailFrom(Key(child))) continue;
        stack.emplace_back();
        top = &stack.back();
        current = child;
        advanced = true;
      }

      bool back_up = false;
      if (last && !_find_possible_policy_node(current, possible)) {
        // Dead end at the last character: give back what a star absorbed and
        // return to the parent's position.
        p -= top->star_count;
        if (advanced || current->is_star()) ++p;
        back_up = true;
      } else {
        if (last) current = possible;
        if (advanced) {
          if (current->is_star()) continue;  // a star first matches nothing
          ++p;
        } else if (!current->is_star()) {
          back_up = true;
        } else {
          top->tried_literal = top->tried_question_mark = top->tried_star = false;
          ++top->star_count;
          ++p;
          if (!memo.empty() && FailsFrom(current, p, memo)) {
            // Every way on from here is known to fail: give the characters back.
            p -= top->star_count - 1;
            back_up = true;
          }
        }
      }
      if (back_up) {
        // One level up, to the parent's position; at the root nothing matches.
        if (current->parent_ == nullptr) {
          found_rule = false;
          break;
        }
        --p;
        if (current->is_star()) {
          memo.RecordFailure(Key(current), p);
        } else if (!memo.empty() && FailsFrom(current, p + 1, memo)) {
          memo.RecordFailure(Key(current), p + 1);
        }
        current = current->parent_;
        stack.pop_back();
        top = &stack.back();
      }
    }
    g_last_find_steps = steps;
    if (!found_rule || !_get_rule_string_and_policy(current, rule_url, policy, identifier,
                                                    expiry, list_id)) {
      return entry_not_found;
    }
    if (policy == translated_block_policy) policy = block_policy;
    if (expiry.empty() || !ExpiryHasPassed(expiry.c_str())) return entry_found;
  }
  if (delete_expired) delete_entry(rule_url.c_str(), true);
  return entry_expired;
}

bool double_linked_graph::delete_entry(const char* url, bool only_if_expired) {
  const char* policy_url = url;
  URL_RULE_ASSERT(policy_url);
  char buffer[kUrlBufferSize];
  const char* rule = buffer;
  if (!_to_lower_and_url_decode(url, buffer, kUrlBufferSize, false)) rule = url;

  UrlRuleWriteGuard hold(lock_);
  node* found;
  policies policy;
  std::string identifier, expiry;
  int list_id;
  if (!_find_entry(rule, found, policy, identifier, expiry, list_id)) return false;
  if (only_if_expired && (expiry.empty() || !ExpiryHasPassed(expiry.c_str()))) return true;

  std::vector<node*>& list = policy_nodes_[found->policy()];
  list.erase(std::find(list.begin(), list.end(), found));
  found->clear_policy_mode();
  _recursive_delete_parent_node(found);
  return true;
}

void double_linked_graph::_recursive_decrease_path_count(node* from) {
  for (node* walk = from; walk != nullptr; walk = walk->parent_) --walk->path_count_;
}

void double_linked_graph::_recursive_delete_parent_node(node* from) {
  node* walk = from;
  while (walk->parent_ != nullptr) {
    node* parent = walk->parent_;
    if (walk->path_count_ == 1) {
      parent->delete_child_node(walk->character_, walk->literal_);
    } else {
      --walk->path_count_;
    }
    walk = parent;
  }
  --walk->path_count_;  // the root
}

bool double_linked_graph::_get_rule_string_and_policy(const node* p_policy_node,
                                                      std::string& rule_url, policies& policy,
                                                      std::string& identifier,
                                                      std::string& expiry, int& list_id) const {
  URL_RULE_ASSERT(p_policy_node);
  if (!p_policy_node->get_policy_mode(policy, identifier, expiry, list_id)) return false;
  rule_url.clear();
  rule_url.reserve(50);
  for (const node* walk = p_policy_node; walk != root_; walk = walk->parent_) {
    if (walk->literal_ && walk->character_ == '*') {
      rule_url.append("a2%");
    } else if (walk->literal_ && walk->character_ == '?') {
      rule_url.append("f3%");
    } else {
      rule_url.push_back(walk->character_);
    }
  }
  std::reverse(rule_url.begin(), rule_url.end());
  return true;
}

void double_linked_graph::_printf_list(FILE* fp, policies policy) const {
  URL_RULE_ASSERT(fp);
  if (policy < 0 || policy >= unknown_policy) return;
  std::string rule, identifier, expiry;
  policies reported;
  int list_id;
  for (const node* entry : policy_nodes_[policy]) {
    _get_rule_string_and_policy(entry, rule, reported, identifier, expiry, list_id);
    rule.append("-->").append(identifier).append("-->").append(expiry).push_back('\n');
    fwrite(rule.data(), 1, rule.size(), fp);
  }
}

int64_t double_linked_graph::last_find_steps() { return g_last_find_steps; }

int double_linked_graph::size() const {
  UrlRuleReadGuard hold(lock_);
  return root_->path_count_;
}

void double_linked_graph::clear() {
  _clear(root_);
  root_->clear_policy_mode();  // the rule with empty text ends at the root
  for (std::vector<node*>& list : policy_nodes_) std::vector<node*>().swap(list);
}

void double_linked_graph::_clear(node* from) {
  // Children destroy their subtrees depth first.
  while (from->child_count_ > 0) {
    node* last = from->children_[from->child_count_ - 1];
    from->delete_child_node(last->character_, last->literal_);
  }
  from->path_count_ = 0;
}

void _roll_back_to_parent_folder(const char* buffer, int& length) {
  if (length < 2 || buffer[length - 1] != '/') return;
  if (buffer[length - 2] == '/') {
    --length;
    return;
  }
  for (int k = length - 3; k >= 0; --k) {
    if (buffer[k] == '/') {
      length = k + 1;
      return;
    }
  }
}
