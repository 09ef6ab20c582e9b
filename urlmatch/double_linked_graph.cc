#include "double_linked_graph.h"

#include <algorithm>
#include <vector>

#include "url_matching_module.h"
#include "urlmatch/compact_trie.h"
#include "urlmatch/fail_memo.h"

using bexo_url::CompactTrie;
using bexo_url::FailMemo;
using bexo_url::kNone;
using bexo_url::Pos;

namespace {

constexpr int kUrlBufferSize = 1024;

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

double_linked_graph::double_linked_graph() : trie_(new CompactTrie) {}

double_linked_graph::~double_linked_graph() { delete trie_; }

bool double_linked_graph::_add_entry(const char* url, policies policy, const char* identifier,
                                     const ux_Time* expiry, int list_id) {
  URL_RULE_ASSERT(policy < unknown_policy);
  const char* policy_url = url;
  URL_RULE_ASSERT(policy_url);
  char expiry_text[ux_Time::kTextSize];
  if (expiry != nullptr) expiry->print_out(expiry_text, sizeof expiry_text);
  return trie_->Insert(url, policy, identifier, expiry != nullptr ? expiry_text : nullptr,
                       list_id);
}

url_rule_serialization_io* double_linked_graph::_begin_load(bool keep_rules) {
  load_mutex_.lock();  // loads one after the other, as when they held the write lock
  double_linked_graph* target = new double_linked_graph;
  if (keep_rules) {
    UrlRuleReadGuard hold(lock_);
    *target->trie_ = *trie_;
  }
  return target;
}

void double_linked_graph::_publish_load(url_rule_serialization_io* target) {
  double_linked_graph* loaded = dynamic_cast<double_linked_graph*>(target);
  URL_RULE_ASSERT(loaded != nullptr && loaded != this);
  loaded->trie_->Compact();
  {
    UrlRuleWriteGuard hold(lock_);
    std::swap(trie_, loaded->trie_);
  }
  delete loaded;  // the old rules, after the last lookup that could see them
  load_mutex_.unlock();
}

void double_linked_graph::Report(uint32_t rule, std::string& rule_url, policies& policy,
                                 std::string& identifier, std::string& expiry,
                                 int& list_id) const {
  trie_->Text(rule, rule_url);
  policy = trie_->Policy(rule);
  if (policy == pattern_policy) policy = block_policy;
  const char* text = trie_->Identifier(rule);
  identifier.assign(text != nullptr ? text : "");
  text = trie_->Expiry(rule);
  expiry.assign(text != nullptr ? text : "");
  list_id = trie_->ListId(rule);
}

bool double_linked_graph::_find_entry(const char* rule_url, policies& policy,
                                      std::string& identifier, std::string& expiry,
                                      int& list_id) const {
  const uint32_t rule = trie_->Find(rule_url);
  if (rule == kNone) return false;
  std::string text;
  Report(rule, text, policy, identifier, expiry, list_id);
  return true;
}

bool double_linked_graph::PossiblePolicy(const Pos& at, Pos* found) const {
  if (trie_->RuleAt(at) != kNone) {
    *found = at;
    return true;
  }
  Pos star, slash;
  if (trie_->Child(at, '*', false, &star) && trie_->RuleAt(star) != kNone) {
    *found = star;
    return true;
  }
  if (trie_->Child(at, '/', true, &slash) && trie_->Child(slash, '*', false, &star) &&
      trie_->RuleAt(star) != kNone) {
    *found = star;
    return true;
  }
  return false;
}

// True when the search at `at` with fresh alternatives fails at position `p`
// and every later one: `at` leads to no possible rule and each child is known
// to fail from where it would start (a '*' child at p, any other at p + 1).
bool double_linked_graph::FailsFrom(const Pos& at, int p, const FailMemo& memo) const {
  Pos possible;
  if (PossiblePolicy(at, &possible)) return false;
  return trie_->EveryChild(at, [&](Pos child, bool star) {
    return p + !star >= memo.FailFrom(CompactTrie::Key(child));
  });
}

find_entry_results double_linked_graph::find_entry(const char* user_url, policies& policy,
                                                   std::string& rule_url,
                                                   std::string& identifier, std::string& expiry,
                                                   int& list_id, bool delete_expired) {
  URL_RULE_ASSERT(user_url);
  // Reused per thread: the stack keeps its room, so a lookup allocates
  // nothing once the thread has seen its deepest search.
  thread_local std::vector<state_variables> stack;

  char buffer[kUrlBufferSize];
  const char* url = buffer;
  g_last_find_steps = 0;
  {
    UrlRuleReadGuard hold(lock_);
    const CompactTrie& trie = *trie_;
    if (trie.Size() == 0) return entry_not_found;
    // Too long to normalise: matched as given, without lower-casing.
    if (!_to_lower_and_url_decode(user_url, buffer, kUrlBufferSize, true)) url = user_url;

    stack.clear();
    stack.emplace_back();
    state_variables* top = &stack.back();  // refreshed after every push and pop
    FailMemo& memo = FailMemo::ForNewLookup();
    Pos current = CompactTrie::Root();
    int p = 0;
    int64_t steps = 0;
    Pos child;
    Pos possible;
    bool found_rule = true;
    while (url[p] != '\0') {
      // Inside a run of literal characters the literal child is the only
      // one: follow the run while the URL agrees, short of its last
      // character, as the rounds below would one by one.
      if (memo.empty() && !top->tried_literal) {
        while (trie.InRun(current) && url[p + 1] != '\0' && trie.NextInRun(current) == url[p]) {
          top->tried_literal = true;
          stack.emplace_back();
          top = &stack.back();
          ++current.offset;
          ++p;
          ++steps;
        }
      }
      ++steps;
      const char c = url[p];
      const bool last = url[p + 1] == '\0';
      bool advanced = false;
      bool found = false;
      if (!top->tried_literal) {
        top->tried_literal = true;
        found = trie.Child(current, c, true, &child);
      }
      if (!found && !top->tried_question_mark) {
        top->tried_question_mark = true;
        found = trie.Child(current, '?', false, &child);
      }
      if (!found && !top->tried_star) {
        top->tried_star = true;
        found = trie.Child(current, '*', false, &child);
      }
      // A child found at the last character that leads to no rule ends the
      // tries of this state: its '?' and '*' siblings are not looked at.
      if (found && (!last || PossiblePolicy(child, &possible))) {
        // A child known to fail from where it would start: the search would
        // try it and come back to this state unchanged.
        if (!memo.empty() &&
            p + !trie.IsStar(child) >= memo.FailFrom(CompactTrie::Key(child))) {
          continue;
        }
        stack.emplace_back();
        top = &stack.back();
        current = child;
        advanced = true;
      }

      bool back_up = false;
      if (last && !PossiblePolicy(current, &possible)) {
        // Dead end at the last character: give back what a star absorbed and
        // return to the parent's position.
        p -= top->star_count;
        if (advanced || trie.IsStar(current)) ++p;
        back_up = true;
      } else {
        if (last) current = possible;
        if (advanced) {
          if (trie.IsStar(current)) continue;  // a star first matches nothing
          ++p;
        } else if (!trie.IsStar(current)) {
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
        if (CompactTrie::IsRoot(current)) {
          found_rule = false;
          break;
        }
        --p;
        if (trie.IsStar(current)) {
          memo.RecordFailure(CompactTrie::Key(current), p);
        } else if (!memo.empty() && FailsFrom(current, p + 1, memo)) {
          memo.RecordFailure(CompactTrie::Key(current), p + 1);
        }
        current = trie.Parent(current);
        stack.pop_back();
        top = &stack.back();
        // Back inside a run, nothing else is left to try: go on up.
        while (memo.empty() && trie.InRun(current) && top->tried_literal) {
          --p;
          current = trie.Parent(current);
          stack.pop_back();
          top = &stack.back();
          ++steps;
        }
      }
    }
    g_last_find_steps = steps;
    const uint32_t rule = found_rule ? trie.RuleAt(current) : kNone;
    if (rule == kNone) return entry_not_found;
    Report(rule, rule_url, policy, identifier, expiry, list_id);
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
  const char* rule_text = buffer;
  if (!_to_lower_and_url_decode(url, buffer, kUrlBufferSize, false)) rule_text = url;

  UrlRuleWriteGuard hold(lock_);
  const uint32_t rule = trie_->Find(rule_text);
  if (rule == kNone) return false;
  const char* expiry = trie_->Expiry(rule);
  if (only_if_expired && (expiry == nullptr || !ExpiryHasPassed(expiry))) return true;
  trie_->Erase(rule);
  return true;
}

void double_linked_graph::_printf_list(FILE* fp, policies policy) const {
  URL_RULE_ASSERT(fp);
  if (policy < 0 || policy >= unknown_policy) return;
  std::string line;
  for (const uint32_t rule : trie_->RulesOf(policy)) {
    const char* identifier = trie_->Identifier(rule);
    const char* expiry = trie_->Expiry(rule);
    trie_->Text(rule, line);
    line.append("-->").append(identifier != nullptr ? identifier : "");
    line.append("-->").append(expiry != nullptr ? expiry : "").push_back('\n');
    fwrite(line.data(), 1, line.size(), fp);
  }
}

int64_t double_linked_graph::last_find_steps() { return g_last_find_steps; }

int double_linked_graph::size() const {
  UrlRuleReadGuard hold(lock_);
  return trie_->Size();
}

void double_linked_graph::clear() { *trie_ = CompactTrie(); }

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
