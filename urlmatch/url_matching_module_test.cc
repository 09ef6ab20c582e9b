// The matching module: which graph a rule goes to, outbreak-prevention
// precedence, loading and saving both files, and lookups racing loads.
#include "url_matching_module.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "temp_root.h"

namespace {

class ModuleTest : public bexo_test::TempRootTest {
 protected:
  find_entry_results Find(const char* url, bool delete_expired = false) {
    return module_.find_entry(url, policy_, rule_, identifier_, expiry_, list_id_,
                              delete_expired);
  }

  url_matching_module module_;
  policies policy_ = unknown_policy;
  std::string rule_, identifier_, expiry_;
  int list_id_ = -1;
};

TEST_F(ModuleTest, RefusesPoliciesOfNeitherGraph) {
  for (policies p : {error_type_policy, translated_block_policy, ph_policy, mmc_policy,
                     static_cast<policies>(70)}) {
    EXPECT_FALSE(module_.add_entry("x", p, nullptr, nullptr)) << p;
  }
  EXPECT_EQ(0, module_.total_size());
  EXPECT_TRUE(module_.add_entry("x", filename_policy, nullptr, nullptr));
  EXPECT_TRUE(module_.add_entry("x", pattern_policy, nullptr, nullptr));
  EXPECT_EQ(1, module_.opp_graph().size());
  EXPECT_EQ(1, module_.user_graph().size());
  EXPECT_EQ(2, module_.total_size());
}

TEST_F(ModuleTest, OutbreakPreventionRuleWinsEvenWhenExpired) {
  ux_Time past(2002, 2, 2);
  ASSERT_TRUE(module_.add_entry("bad.example/*", url_pattern_policy, "OPP42", &past));
  ASSERT_TRUE(module_.add_entry("bad.example/*", allow_policy, nullptr, nullptr));
  ASSERT_TRUE(module_.add_entry("good.example/*", allow_policy, nullptr, nullptr));
  EXPECT_EQ(entry_expired, Find("BAD.example/page"));
  EXPECT_EQ(url_pattern_policy, policy_);
  EXPECT_EQ("OPP42", identifier_);
  EXPECT_EQ(entry_expired, Find("bad.example/x", true));
  EXPECT_EQ(entry_found, Find("bad.example/x")) << "user rule answers once the opp rule is gone";
  EXPECT_EQ(allow_policy, policy_);
  EXPECT_EQ(entry_found, Find("good.example"));
}

TEST_F(ModuleTest, SavesAndLoadsBothFiles) {
  const std::string opp = root() + "/opp.list", user = root() + "/user.list";
  ASSERT_TRUE(module_.add_entry("o.example", web_server_policy, "W1", nullptr));
  ASSERT_TRUE(module_.add_entry("u.example/*", block_policy, nullptr, nullptr));
  ASSERT_TRUE(module_.serialization(opp.c_str(), user.c_str()));

  url_matching_module loaded;
  ASSERT_TRUE(loaded.add_entry("stale.example", filename_policy, nullptr, nullptr));
  ASSERT_TRUE(loaded.add_entry("kept.example", allow_policy, nullptr, nullptr));
  ASSERT_TRUE(loaded.deserialization(opp.c_str(), user.c_str(), false, false));
  EXPECT_EQ(1, loaded.opp_graph().size()) << "the opp graph is always cleared";
  EXPECT_EQ(2, loaded.user_graph().size()) << "the user graph only with clear_user";
  ASSERT_TRUE(loaded.deserialization(opp.c_str(), user.c_str(), false, true));
  EXPECT_EQ(2, loaded.total_size());

  // either file loading is success; both missing is failure
  EXPECT_TRUE(loaded.deserialization((root() + "/none").c_str(), user.c_str(), false, true));
  EXPECT_FALSE(loaded.deserialization((root() + "/none").c_str(), nullptr, false, true));
  EXPECT_FALSE(loaded.serialization((root() + "/no/dir").c_str(), user.c_str()));
  EXPECT_TRUE(loaded.serialization(nullptr, nullptr));
}

TEST(ModuleDeath, ProgrammingErrorsStopTheProcess) {
  url_matching_module module;
  policies policy;
  std::string rule, id, expiry;
  int list_id;
  EXPECT_DEATH(module.add_entry("x", unknown_policy, nullptr, nullptr), "policy < unknown_policy");
  EXPECT_DEATH(module.add_entry(nullptr, block_policy, nullptr, nullptr), "policy_url");
  EXPECT_DEATH(module.find_entry(nullptr, policy, rule, id, expiry, list_id, false), "user_url");
}

// Readers must always see either the old or the new rule set, never a torn
// one: the stable rules answer the same throughout.
TEST_F(ModuleTest, LookupsRunWhileRulesAreLoadedAndDeleted) {
  const std::string user = root() + "/user.list";
  {
    url_matching_module writer;
    for (int i = 0; i < 500; ++i) {
      const std::string rule = "host" + std::to_string(i) + ".example/*";
      ASSERT_TRUE(writer.add_entry(rule.c_str(), i % 2 ? block_policy : allow_policy, nullptr,
                                   nullptr));
    }
    ASSERT_TRUE(writer.serialization(nullptr, user.c_str()));
  }
  ASSERT_TRUE(module_.add_entry("stable.example/*", filename_policy, "S", nullptr));

  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::atomic<long> lookups{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t) {
    readers.emplace_back([&, t] {
      policies policy;
      std::string rule, id, expiry;
      int list_id;
      for (int i = 0; !stop.load(); ++i) {
        const std::string url = "host" + std::to_string((i * 7 + t) % 600) + ".example/p";
        const find_entry_results r =
            module_.find_entry(url.c_str(), policy, rule, id, expiry, list_id, false);
        if (r == entry_found && rule.compare(0, 4, "host") != 0) ++wrong;
        if (module_.find_entry("stable.example/x", policy, rule, id, expiry, list_id, false) !=
                entry_found ||
            id != "S") {
          ++wrong;
        }
        ++lookups;
      }
    });
  }
  // The writer reloads the user list and deletes from it, many times over.
  double_linked_graph& user_graph = const_cast<double_linked_graph&>(module_.user_graph());
  for (int round = 0; round < 30; ++round) {
    ASSERT_TRUE(user_graph.deserialization(user.c_str(), false, true));
    for (int i = 0; i < 500; i += 5) {
      const std::string rule = "host" + std::to_string(i) + ".example/*";
      ASSERT_TRUE(user_graph.delete_entry(rule.c_str(), false));
    }
    EXPECT_EQ(400, user_graph.size());
  }
  while (lookups.load() < 1000) std::this_thread::yield();
  stop = true;
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(0, wrong.load());
}

}  // namespace
