// The rule graph's quirks and edge cases; generic matching, deletion and
// file round trips are compared against the model trie in
// url_store_differential_test.cc.
#include "double_linked_graph.h"


#include <string>
#include <vector>

#include "temp_root.h"
#include "url_matching_module.h"

namespace {

struct Rule {
  const char* text;
  policies policy;
};

struct MatchCase {
  const char* name;
  std::vector<Rule> rules;
  const char* url;
  find_entry_results result;
  const char* rule;  // expected rule text when found
  policies policy;
};

void PrintTo(const MatchCase& c, std::ostream* os) { *os << c.name; }

void AddRule(double_linked_graph& graph, const char* text, policies policy,
             const char* identifier = nullptr, const ux_Time* expiry = nullptr, int list_id = 0) {
  UrlRuleWriteGuard hold(graph.rule_lock());
  ASSERT_TRUE(graph._add_entry(text, policy, identifier, expiry, list_id)) << text;
}

struct Answer {
  find_entry_results result;
  policies policy = unknown_policy;
  std::string rule, identifier, expiry;
  int list_id = -1;
};

Answer Lookup(double_linked_graph& graph, const std::string& url, bool delete_expired = false) {
  Answer a;
  a.result = graph.find_entry(url.c_str(), a.policy, a.rule, a.identifier, a.expiry, a.list_id,
                              delete_expired);
  return a;
}

class MatchTest : public bexo_test::TempRootTest, public ::testing::WithParamInterface<MatchCase> {};

TEST_P(MatchTest, AnswersFirstMatchingRule) {
  const MatchCase& c = GetParam();
  double_linked_graph graph;
  for (const Rule& r : c.rules) AddRule(graph, r.text, r.policy);
  Answer a = Lookup(graph, c.url);
  EXPECT_EQ(c.result, a.result);
  if (c.result == entry_found) {
    EXPECT_EQ(c.rule, a.rule);
    EXPECT_EQ(c.policy, a.policy);
  }
}

constexpr policies B = block_policy;
constexpr policies A = allow_policy;

INSTANTIATE_TEST_SUITE_P(
    Traps, MatchTest,
    ::testing::Values(
        MatchCase{"NoTrailingStarNoLonger", {{"host", B}}, "host/x", entry_not_found, "", B},
        MatchCase{"HostSlashStarMatchesHost", {{"host/*", B}}, "host", entry_found, "host/*", B},
        MatchCase{"HostSlashStarMatchesPath", {{"host/*", B}}, "host/x", entry_found, "host/*", B},
        // at the last character the '*' reached through '/' absorbs it: one
        // extra character after the host matches, two do not
        MatchCase{"HostSlashStarTakesOneLastChar", {{"host/*", B}}, "hostx", entry_found,
                  "host/*", B},
        MatchCase{"HostSlashStarNotTwoMoreChars", {{"host/*", B}}, "hostxy", entry_not_found,
                  "", B},
        MatchCase{"UrlIsNormalised", {{"host/a/c", B}}, "HOST//a/./b/../c", entry_found,
                  "host/a/c", B},
        MatchCase{"SchemeDoubleSlash", {{"http:/host/*", B}}, "http://host/x", entry_found,
                  "http:/host/*", B},
        MatchCase{"EscapedStarIsLiteral", {{"a%2a", B}}, "a*", entry_found, "a%2a", B},
        MatchCase{"EscapedStarFromUrlEscape", {{"a%2a", B}}, "a%2a", entry_found, "a%2a", B},
        MatchCase{"EscapedStarNotWildcard", {{"a%2a", B}}, "ab", entry_not_found, "", B},
        MatchCase{"EscapedQuestionMark", {{"a%3fb", B}}, "a%3Fb", entry_found, "a%3fb", B},
        MatchCase{"LiteralBeforeWildcard", {{"ab", A}, {"a?", B}}, "ab", entry_found, "ab", A},
        MatchCase{"QuestionBeforeStar", {{"a*", A}, {"a?", B}}, "ab", entry_found, "a?", B},
        // the literal 'c' child at the last character leads to no rule and
        // keeps the '?' sibling from being tried
        MatchCase{"LiteralChildBlocksAtLastChar", {{"abcd", B}, {"ab?", A}}, "abc",
                  entry_not_found, "", B},
        MatchCase{"QuestionAloneAtLastChar", {{"ab?", A}}, "abc", entry_found, "ab?", A},
        MatchCase{"PatternReportedAsBlock", {{"p.example", pattern_policy}}, "p.example",
                  entry_found, "p.example", B},
        MatchCase{"TranslatedReportedAsBlock", {{"192.0.2.1/x", translated_block_policy}},
                  "192.0.2.1/x", entry_found, "192.0.2.1/x", B},
        MatchCase{"EmptyUrl", {{"a", B}}, "", entry_not_found, "", B},
        MatchCase{"UppercaseRuleNeverMatches", {{"HOST", B}}, "HOST", entry_not_found, "", B}),
    [](const ::testing::TestParamInfo<MatchCase>& param_info) {
      return std::string(param_info.param.name);
    });

class GraphTest : public bexo_test::TempRootTest {};

TEST_F(GraphTest, OverlongUrlIsMatchedRawWithoutLowerCasing) {
  double_linked_graph graph;
  EXPECT_EQ(entry_not_found, Lookup(graph, std::string(5000, 'a')).result);  // empty graph
  const std::string raw = "Host/" + std::string(1100, 'X');
  AddRule(graph, (raw).c_str(), block_policy);
  AddRule(graph, "host/*", allow_policy);
  Answer a = Lookup(graph, raw);
  EXPECT_EQ(entry_found, a.result);
  EXPECT_EQ(raw, a.rule);
  EXPECT_EQ(entry_found, Lookup(graph, "HOST/x").result);
}

TEST_F(GraphTest, ExpiredRuleIsReportedAndDeletedOnlyWhenAsked) {
  double_linked_graph graph;
  ux_Time past(2001, 2, 3, 4, 5, 6);
  ux_Time future(2099, 12, 31, 23, 59, 59);
  AddRule(graph, "old.example/*", block_policy, "opp7", &past);
  AddRule(graph, "new.example/*", block_policy, "opp8", &future);

  Answer a = Lookup(graph, "old.example/x");
  EXPECT_EQ(entry_expired, a.result);
  EXPECT_EQ("old.example/*", a.rule);
  EXPECT_EQ("opp7", a.identifier);
  EXPECT_EQ("2001/02/03 04:05:06", a.expiry);
  EXPECT_EQ(2, graph.size());

  EXPECT_EQ(entry_expired, Lookup(graph, "old.example/x", true).result);
  EXPECT_EQ(1, graph.size());
  EXPECT_EQ(entry_not_found, Lookup(graph, "old.example/x").result);
  EXPECT_EQ(entry_found, Lookup(graph, "new.example/y", true).result);
  EXPECT_EQ(1, graph.size());
}

TEST_F(GraphTest, DeleteOnlyIfExpiredKeepsValidRules) {
  double_linked_graph graph;
  ux_Time past(2001, 1, 1);
  AddRule(graph, "keep", block_policy);
  AddRule(graph, "gone", block_policy, nullptr, &past);
  EXPECT_TRUE(graph.delete_entry("keep", true));
  EXPECT_TRUE(graph.delete_entry("GONE", true));
  EXPECT_FALSE(graph.delete_entry("missing", false));
  EXPECT_EQ(1, graph.size());
  EXPECT_EQ(entry_found, Lookup(graph, "keep").result);
  EXPECT_EQ(entry_not_found, Lookup(graph, "gone").result);
  // a literal star is deleted through its escape, not the wildcard rule
  AddRule(graph, "a*", block_policy);
  AddRule(graph, "a%2a", allow_policy);
  EXPECT_TRUE(graph.delete_entry("a%2A", false));
  EXPECT_EQ("a*", Lookup(graph, "a*").rule);
}

TEST_F(GraphTest, ManyChildrenOfOneCharacterAllMatch) {
  double_linked_graph graph;
  for (int c = 1; c < 256; ++c) {
    if (c == '*' || c == '?' || c == '%') continue;
    const char text[3] = {'x', static_cast<char>(c), '\0'};
    AddRule(graph, text, block_policy);
  }
  AddRule(graph, "x*", allow_policy);
  AddRule(graph, "x?", allow_policy);
  AddRule(graph, "x%2a", block_policy);
  EXPECT_EQ(255, graph.size());
  EXPECT_EQ("x~", Lookup(graph, "x~").rule);
  EXPECT_EQ("x%2a", Lookup(graph, "x*").rule);
  EXPECT_EQ("x?", Lookup(graph, "x%3f").rule);
  EXPECT_EQ("x*", Lookup(graph, "x%3f%3f").rule);
}

TEST(GraphDeath, ProgrammingErrorsStopTheProcess) {
  double_linked_graph graph;
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  EXPECT_DEATH(graph.find_entry(nullptr, policy, rule, id, expiry, list_id, false), "user_url");
  EXPECT_DEATH(graph.delete_entry(nullptr, false), "policy_url");
  EXPECT_DEATH(graph._add_entry("a", unknown_policy, nullptr, nullptr, 0),
               "policy < unknown_policy");
  EXPECT_DEATH(graph._add_entry(nullptr, block_policy, nullptr, nullptr, 0), "policy_url");
  EXPECT_DEATH(graph._printf_list(nullptr, block_policy), "fp");
}

// ---- bounded lookups ------------------------------------------------------

struct StarCase {
  int stars;
  int length;
};

class StarBoundTest : public bexo_test::TempRootTest,
                      public ::testing::WithParamInterface<StarCase> {};

// "a*a*...*b" against a run of 'a': every way the stars can split the run
// fails, which once took minutes. The search now enters each node at most
// once per input position.
TEST_P(StarBoundTest, PathologicalRuleTakesStepsBoundedByNodesTimesLength) {
  const StarCase& c = GetParam();
  std::string rule = "a";
  for (int i = 1; i < c.stars; ++i) rule += "*a";
  rule += "*b";
  const int nodes = static_cast<int>(rule.size()) + 1;  // with the root
  double_linked_graph graph;
  AddRule(graph, rule.c_str(), block_policy);
  const std::string url(c.length, 'a');
  EXPECT_EQ(entry_not_found, Lookup(graph, url).result);
  const int64_t steps = double_linked_graph::last_find_steps();
  EXPECT_LE(steps, 4 * static_cast<int64_t>(nodes) * (c.length + 1)) << "steps " << steps;

  Answer hit = Lookup(graph, url + "b");
  EXPECT_EQ(entry_found, hit.result);
  EXPECT_EQ(rule, hit.rule);
}

INSTANTIATE_TEST_SUITE_P(Stars, StarBoundTest,
                         ::testing::Values(StarCase{4, 200}, StarCase{4, 1000},
                                           StarCase{30, 1000}, StarCase{30, 1023}));

// ---- clear() --------------------------------------------------------------

// The rule with empty text ends at the root; re-adding it after a clearing
// reload replaces it, and clear() drops it like every other rule.
TEST_F(GraphTest, ClearingReloadDropsTheEmptyRuleToo) {
  const std::string path = root() + "/empty.list";
  double_linked_graph graph;
  AddRule(graph, "", block_policy);
  ASSERT_TRUE(graph.serialization(path.c_str()));
  ASSERT_TRUE(graph.deserialization(path.c_str(), false, true));
  AddRule(graph, "", allow_policy);
  EXPECT_EQ(1, graph.size());
  EXPECT_EQ(allow_policy, Lookup(graph, "").policy);
  {
    UrlRuleWriteGuard hold(graph.rule_lock());
    graph.clear();
  }
  EXPECT_EQ(entry_not_found, Lookup(graph, "").result);
}

}  // namespace
