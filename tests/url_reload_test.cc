// Reloading a rule list while two threads look URLs up: the lookups go on
// during every load, and each answer comes wholly from the old list or wholly
// from the new one (both hold the same rules, with identifiers "A" and "B").
// And a load in progress never holds a lookup back.
#include <unistd.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "double_linked_graph.h"
#include "temp_root.h"

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRules = 20000;  // the sanitizers make each load ten times slower
#else
constexpr int kRules = 200000;
#endif
constexpr int kReloads = 10;

class UrlReloadTest : public bexo_test::TempRootTest {
 protected:
  std::string WriteList(const char* identifier) {
    std::string text = "[block]\n";
    for (int i = 0; i < kRules; ++i) {
      text += "h" + std::to_string(i) + ".example/*-->" + identifier + "-->\n";
    }
    const std::string path = root() + "/" + identifier + ".list";
    bexo_test::WriteFile(path, text);
    return path;
  }
};

TEST_F(UrlReloadTest, LookupsGoOnDuringReloadsAndSeeOneWholeList) {
  const std::string lists[2] = {WriteList("A"), WriteList("B")};
  double_linked_graph graph;
  ASSERT_TRUE(graph.deserialization(lists[0].c_str(), false, true));

  std::atomic<bool> loading{false}, done{false};
  std::atomic<long> during_loads{0}, wrong{0};
  auto look_up = [&](unsigned seed) {
    std::mt19937 rng(seed);
    policies policy;
    std::string rule, identifier, expiry;
    int list_id;
    while (!done.load()) {
      const std::string host = "h" + std::to_string(rng() % kRules) + ".example";
      const bool was_loading = loading.load();
      const find_entry_results r = graph.find_entry((host + "/x").c_str(), policy, rule,
                                                    identifier, expiry, list_id, false);
      if (r != entry_found || rule != host + "/*" || (identifier != "A" && identifier != "B")) {
        ++wrong;
      }
      if (was_loading && loading.load()) ++during_loads;
    }
  };
  std::thread a(look_up, 1), b(look_up, 2);
  for (int i = 1; i <= kReloads; ++i) {
    loading = true;
    EXPECT_TRUE(graph.deserialization(lists[i % 2].c_str(), false, true));
    loading = false;
  }
  done = true;
  a.join();
  b.join();
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(kRules, graph.size());
  EXPECT_GT(during_loads.load(), 0L);
}

// A load left unpublished (a loader still reading its source): lookups go on
// answering from the current rules meanwhile.
TEST_F(UrlReloadTest, LookupsDoNotWaitForALoadInProgress) {
  double_linked_graph graph;
  {
    UrlRuleWriteGuard hold(graph.rule_lock());
    ASSERT_TRUE(graph._add_entry("old.example/*", block_policy, nullptr, nullptr, 0));
  }
  url_rule_serialization_io* target = graph._begin_load(false);
  ASSERT_TRUE(target->_do_parse_and_addlist("new.example/*-->B-->", false, allow_policy, 3));
  std::atomic<int> answered{0};
  std::thread reader([&] {
    policies policy;
    std::string rule, identifier, expiry;
    int list_id;
    for (int i = 0; i < 1000; ++i) {
      if (graph.find_entry("old.example/x", policy, rule, identifier, expiry, list_id, false) ==
          entry_found) {
        ++answered;
      }
    }
  });
  // Lookups held back by the load would never finish before it is published.
  for (int waited = 0; answered.load() < 1000 && waited < 10000; ++waited) usleep(1000);
  EXPECT_EQ(1000, answered.load());
  graph._publish_load(target);
  reader.join();
  policies policy;
  std::string rule, identifier, expiry;
  int list_id = 0;
  EXPECT_EQ(entry_found,
            graph.find_entry("new.example/x", policy, rule, identifier, expiry, list_id, false));
  EXPECT_EQ(3, list_id);
  EXPECT_EQ(1, graph.size());
}

}  // namespace
