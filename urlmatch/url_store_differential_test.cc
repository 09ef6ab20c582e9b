// The rule store against the plain model trie of tests/support: the same
// generated rules (wildcards, escapes, expiries, list identifiers), edits
// (repeats, deletions, expired rules deleted by lookups, reloads from a file
// with and without clearing)
// and URLs (filled-in rules, noise, case and escapes, over-long raw URLs) must
// give identical answers, sizes and written lists.
#include <stdio.h>

#include <random>
#include <string>
#include <vector>

#include "double_linked_graph.h"
#include "temp_root.h"
#include "url_model_trie.h"

namespace {

using bexo_test::UrlModelTrie;

struct Mix {
  const char* name;
  const char* alphabet;  // rule characters; '*' and '?' are wildcards
  int max_rule;
  int max_stars;
  int max_url;
};

class Differential : public bexo_test::TempRootTest {
 protected:
  std::mt19937 rng_{20261124};

  int Roll(int n) { return static_cast<int>(rng_() % n); }

  std::string RuleText(const Mix& mix) {
    const std::string letters(mix.alphabet);
    for (;;) {
      std::string text;
      int stars = 0;
      const int length = Roll(mix.max_rule + 1);
      for (int i = 0; i < length; ++i) {
        const int pick = Roll(static_cast<int>(letters.size()) + 2);
        if (pick == static_cast<int>(letters.size())) {
          text += "%2a";
        } else if (pick > static_cast<int>(letters.size())) {
          text += "%3f";
        } else if (letters[pick] != '*' || ++stars <= mix.max_stars) {
          text += letters[pick];
        }
      }
      char normal[1024];
      if (_to_lower_and_url_decode(text.c_str(), normal, sizeof normal, false) && text == normal) {
        return text;
      }
    }
  }

  std::string Url(const Mix& mix, const std::vector<std::string>& rules) {
    std::string url;
    const int kind = Roll(10);
    if (kind < 5 && !rules.empty()) {
      // a stored rule with its wildcards filled in, sometimes cut or extended
      const std::string& rule = rules[Roll(static_cast<int>(rules.size()))];
      for (size_t i = 0; i < rule.size(); ++i) {
        if (rule[i] == '*') {
          for (int k = Roll(4); k > 0; --k) url += "ab/."[Roll(4)];
        } else if (rule[i] == '?') {
          url += "ab/x"[Roll(4)];
        } else if (rule.compare(i, 3, "%2a") == 0) {
          url += Roll(2) ? "*" : "%2A", i += 2;
        } else {
          url += Roll(8) ? rule[i] : static_cast<char>(toupper(rule[i]));
        }
      }
      if (Roll(4) == 0) url.resize(url.size() / 2);
      if (Roll(4) == 0) url += "/x";
    } else if (kind < 9 || mix.max_stars > 1) {
      for (int i = Roll(mix.max_url) + 1; i > 0; --i) url += "ab/.*?%2AB"[Roll(10)];
    } else {
      // beyond the normalisation buffer: matched raw (the model's time grows
      // with the URL length to the power of the stars in a row)
      url.assign(1024 + Roll(40), 'a');
      if (Roll(2)) url[Roll(1024)] = 'B';
    }
    if (static_cast<int>(url.size()) > mix.max_url && url.size() < 1024) url.resize(mix.max_url);
    return url;
  }

  static UrlModelTrie::Answer Ask(double_linked_graph& graph, const std::string& url,
                                  bool delete_expired) {
    UrlModelTrie::Answer a;
    a.result = graph.find_entry(url.c_str(), a.policy, a.rule, a.identifier, a.expiry, a.list_id,
                                delete_expired);
    return a;
  }

  static std::string Written(const double_linked_graph& graph, policies policy) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    graph._printf_list(out, policy);
    fclose(out);
    std::string written(text, size);
    free(text);
    return written;
  }

  // Reload both from the graph's file: the model re-adds its own written
  // rules (list identifiers are not written; translated blocks are dropped
  // when the load clears).
  void Reload(double_linked_graph& graph, UrlModelTrie& model, bool clear_first) {
    const std::string path = root() + "/reload.list";
    ASSERT_TRUE(graph.serialization(path.c_str()));
    ASSERT_TRUE(graph.deserialization(path.c_str(), false, clear_first));
    UrlModelTrie kept;
    UrlModelTrie& fresh = clear_first ? kept : model;
    for (int p = 0; p < unknown_policy; ++p) {
      if (p == translated_block_policy) continue;
      const std::string lines = model.List(static_cast<policies>(p));
      for (size_t start = 0; start < lines.size();) {
        const size_t end = lines.find('\n', start);
        const std::string line = lines.substr(start, end - start);
        start = end + 1;
        const size_t d1 = line.find("-->"), d2 = line.find("-->", d1 + 3);
        const std::string rule = line.substr(0, d1), id = line.substr(d1 + 3, d2 - d1 - 3),
                          expiry_text = line.substr(d2 + 3);
        ux_Time expiry;
        if (!expiry_text.empty()) expiry.set_to_string_value(expiry_text.c_str());
        fresh.Add(rule.c_str(), static_cast<policies>(p), id.empty() ? nullptr : id.c_str(),
                  expiry_text.empty() ? nullptr : &expiry, 0);
      }
    }
    if (clear_first) model = std::move(kept);
  }

  // Adds the number of lookups compared to `compared`.
  void Run(const Mix& mix, int rounds, int rules_per_round, int lookups_per_round,
           int* compared) {
    const ux_Time past(2001, 2, 3), future(2099, 4, 5);
    const char* const ids[] = {nullptr, "id1", "opp-7"};
    for (int round = 0; round < rounds; ++round) {
      double_linked_graph graph;
      UrlModelTrie model;
      std::vector<std::string> rules;
      for (int step = 0; step < 4; ++step) {
        for (int i = 0; i < rules_per_round; ++i) {
          const bool repeat = !rules.empty() && Roll(10) == 0;
          const std::string rule = repeat ? rules[Roll(static_cast<int>(rules.size()))]
                                          : RuleText(mix);
          rules.push_back(rule);
          const policies policy = static_cast<policies>(1 + Roll(10));
          const int e = Roll(6);
          const ux_Time* expiry = e == 0 ? &past : e == 1 ? &future : nullptr;
          const char* id = ids[Roll(3)];
          const int list_id = Roll(3);
          {
            UrlRuleWriteGuard hold(graph.rule_lock());
            ASSERT_TRUE(graph._add_entry(rule.c_str(), policy, id, expiry, list_id));
          }
          model.Add(rule.c_str(), policy, id, expiry, list_id);
        }
        for (int i = 0; i < rules_per_round / 4; ++i) {
          const std::string& rule = rules[Roll(static_cast<int>(rules.size()))];
          ASSERT_EQ(model.Delete(rule), graph.delete_entry(rule.c_str(), false)) << rule;
        }
        if (step >= 2) Reload(graph, model, step == 2);
        for (int i = 0; i < lookups_per_round; ++i) {
          const std::string url = Url(mix, rules);
          const bool delete_expired = Roll(4) == 0;
          const UrlModelTrie::Answer want = model.Find(url, delete_expired);
          const UrlModelTrie::Answer got = Ask(graph, url, delete_expired);
          ASSERT_TRUE(want == got) << mix.name << " url '" << url << "': model " << want.result
                                   << " '" << want.rule << "', store " << got.result << " '"
                                   << got.rule << "'";
          ++*compared;
        }
        ASSERT_EQ(model.Size(), graph.size());
        for (int p = 0; p < unknown_policy; ++p) {
          ASSERT_EQ(model.List(static_cast<policies>(p)), Written(graph, static_cast<policies>(p)));
        }
      }
    }
  }
};

TEST_F(Differential, StoreAnswersLikeTheModelTrie) {
  const Mix mixes[] = {
      {"hosts", "ab./-", 10, 0, 16},
      {"few stars", "ab/.*?", 8, 2, 24},
      {"many stars", "a*b?", 12, 8, 14},
      {"long rules", "ab/*", 40, 1, 60},
  };
  int compared = 0;
  for (const Mix& mix : mixes) {
    Run(mix, 25, 60, 250, &compared);
    if (HasFatalFailure()) return;
  }
  EXPECT_GE(compared, 100000);
}

}  // namespace
