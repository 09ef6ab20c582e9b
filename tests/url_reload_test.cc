// Reloading a rule list while two threads look URLs up: the lookups go on
// during every load, and each answer comes wholly from the old list or wholly
// from the new one (both hold the same rules, with identifiers "A" and "B").
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
  // Lookups that waited for the loads would finish only in the moments
  // between them (about 13k here, against 2M when they go on).
  EXPECT_GT(during_loads.load(), static_cast<long>(kRules));
}

}  // namespace
