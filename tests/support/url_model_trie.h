// UrlModelTrie: a deliberately plain URL rule store, one heap node per
// character with its children in insertion order and a parent pointer, whose
// lookup follows the matching steps one by one with a deque of states and no
// shortcuts. Tests answer the same generated rules and URLs with it and with
// the real store and compare every answer; the benchmark runs it as a peer.
//
// Its lookup time grows with (URL length)^(stars in a row): keep the rules
// fed to it to a few stars when URLs are long.
//
// Thread safety: none; one thread per model.
#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "url_matching_module.h"

namespace bexo_test {

class UrlModelTrie {
 public:
  struct Answer {
    find_entry_results result = entry_not_found;
    policies policy = unknown_policy;
    std::string rule, identifier, expiry;
    int list_id = -1;
    bool operator==(const Answer& o) const {
      return result == o.result && (result == entry_not_found ||
                                    (policy == o.policy && rule == o.rule &&
                                     identifier == o.identifier && expiry == o.expiry &&
                                     list_id == o.list_id));
    }
  };

  UrlModelTrie() : root_(new Node('S', true, nullptr)) {}

  void Add(const char* url, policies policy, const char* identifier, const ux_Time* expiry,
           int list_id) {
    Node* current = root_.get();
    std::vector<Node*> path{current};
    for (const char* t = url; *t != '\0';) {
      char c = *t;
      bool literal = true;
      int length = 1;
      if (c == '*' || c == '?') {
        literal = false;
      } else if (t[0] == '%' && t[1] == '2' && t[2] == 'a') {
        c = '*', length = 3;
      } else if (t[0] == '%' && t[1] == '3' && t[2] == 'f') {
        c = '?', length = 3;
      }
      Node* next = current->Child(c, literal);
      if (next == nullptr) {
        current->children.emplace_back(new Node(c, literal, current));
        next = current->children.back().get();
      }
      current = next;
      path.push_back(current);
      t += length;
    }
    if (!current->has_rule) {
      for (Node* n : path) ++n->path_count;
      by_policy_[policy].push_back(current);
    } else if (current->policy != policy) {
      std::vector<Node*>& old = by_policy_[current->policy];
      old.erase(std::find(old.begin(), old.end(), current));
      by_policy_[policy].push_back(current);
    }
    current->has_rule = true;
    current->policy = policy;
    current->identifier = identifier ? identifier : "";
    current->expiry.clear();
    if (expiry != nullptr) {
      char text[ux_Time::kTextSize];
      current->expiry = expiry->print_out(text, sizeof text);
    }
    current->list_id = list_id;
  }

  // Removes the rule with exactly this (normalised) text; false when none.
  bool Delete(const std::string& rule) {
    Node* n = Exact(rule);
    if (n == nullptr) return false;
    std::vector<Node*>& list = by_policy_[n->policy];
    list.erase(std::find(list.begin(), list.end(), n));
    n->has_rule = false;
    while (n->parent != nullptr) {
      Node* parent = n->parent;
      if (--n->path_count == 0) {
        auto& kids = parent->children;
        kids.erase(std::find_if(kids.begin(), kids.end(),
                                [n](const std::unique_ptr<Node>& k) { return k.get() == n; }));
      }
      n = parent;
    }
    --n->path_count;
    return true;
  }

  int Size() const { return root_->path_count; }

  // Rules of one policy as "RULE-->ID-->EXPIRY\n" lines, in insertion order.
  std::string List(policies policy) const {
    std::string out;
    for (const Node* n : by_policy_[policy]) {
      out += Text(n) + "-->" + n->identifier + "-->" + n->expiry + "\n";
    }
    return out;
  }

  Answer Find(const std::string& user_url, bool delete_expired) {
    Answer a;
    if (root_->path_count == 0) return a;
    char buffer[1024];
    const char* url = _to_lower_and_url_decode(user_url.c_str(), buffer, 1024, true)
                          ? buffer
                          : user_url.c_str();
    std::deque<State> stack(1);
    Node* current = root_.get();
    int p = 0;
    while (url[p] != '\0') {
      State& top = stack.back();
      const bool last = url[p + 1] == '\0';
      bool advanced = false;
      Node* child = nullptr;
      if (!top.tried_literal) {
        top.tried_literal = true;
        child = current->Child(url[p], true);
      }
      if (child == nullptr && !top.tried_question_mark) {
        top.tried_question_mark = true;
        child = current->Child('?', false);
      }
      if (child == nullptr && !top.tried_star) {
        top.tried_star = true;
        child = current->Child('*', false);
      }
      if (child != nullptr && (!last || Possible(child) != nullptr)) {
        stack.emplace_back();
        current = child;
        advanced = true;
      }
      bool back_up = false;
      Node* possible = last ? Possible(current) : nullptr;
      if (last && possible == nullptr) {
        p -= stack.back().star_count;
        if (advanced || current->IsStar()) ++p;
        back_up = true;
      } else {
        if (last) current = possible;
        if (advanced) {
          if (current->IsStar()) continue;
          ++p;
        } else if (!current->IsStar()) {
          back_up = true;
        } else {
          State& s = stack.back();
          s.tried_literal = s.tried_question_mark = s.tried_star = false;
          ++s.star_count;
          ++p;
        }
      }
      if (back_up) {
        if (current->parent == nullptr) return a;
        current = current->parent;
        --p;
        stack.pop_back();
      }
    }
    if (!current->has_rule) return a;
    a.policy = current->policy == pattern_policy || current->policy == translated_block_policy
                   ? block_policy
                   : current->policy;
    a.rule = Text(current);
    a.identifier = current->identifier;
    a.expiry = current->expiry;
    a.list_id = current->list_id;
    a.result = entry_found;
    if (!a.expiry.empty()) {
      ux_Time now, expiry;
      now.get_current_time();
      expiry.set_to_string_value(a.expiry.c_str());
      if (now.compare_time(expiry) >= 0) {
        a.result = entry_expired;
        if (delete_expired) Delete(a.rule);
      }
    }
    return a;
  }

 private:
  struct Node {
    Node(char c, bool is_literal, Node* up)
        : character(c), literal(is_literal || (c != '*' && c != '?')), parent(up) {}
    Node* Child(char c, bool want_literal) const {
      for (const auto& k : children) {
        if (k->character == c && k->literal == want_literal) return k.get();
      }
      return nullptr;
    }
    bool IsStar() const { return !literal && character == '*'; }
    char character;
    bool literal;
    Node* parent;
    bool has_rule = false;
    policies policy = unknown_policy;
    std::string identifier, expiry;
    int list_id = 0;
    int path_count = 0;
    std::vector<std::unique_ptr<Node>> children;
  };
  struct State {
    bool tried_literal = false, tried_question_mark = false, tried_star = false;
    int star_count = 0;
  };

  static Node* Possible(Node* n) {
    if (n->has_rule) return n;
    Node* star = n->Child('*', false);
    if (star != nullptr && star->has_rule) return star;
    Node* slash = n->Child('/', true);
    star = slash != nullptr ? slash->Child('*', false) : nullptr;
    return star != nullptr && star->has_rule ? star : nullptr;
  }

  static std::string Text(const Node* n) {
    std::string text;
    for (; n->parent != nullptr; n = n->parent) {
      if (n->literal && n->character == '*') {
        text.insert(0, "%2a");
      } else if (n->literal && n->character == '?') {
        text.insert(0, "%3f");
      } else {
        text.insert(0, 1, n->character);
      }
    }
    return text;
  }

  Node* Exact(const std::string& rule) const {
    Node* n = root_.get();
    for (size_t i = 0; i < rule.size() && n != nullptr;) {
      if (rule[i] == '*' || rule[i] == '?') {
        n = n->Child(rule[i], false), ++i;
      } else if (rule.compare(i, 3, "%2a") == 0) {
        n = n->Child('*', true), i += 3;
      } else if (rule.compare(i, 3, "%3f") == 0) {
        n = n->Child('?', true), i += 3;
      } else {
        n = n->Child(rule[i], true), ++i;
      }
    }
    return n != nullptr && n->has_rule ? n : nullptr;
  }

  std::unique_ptr<Node> root_;
  std::vector<Node*> by_policy_[unknown_policy];
};

}  // namespace bexo_test
