// URL lists from the policy database, against a real PostgreSQL server: the
// three list types, the consecutive-duplicate rule, per-row list identifiers
// of custom categories, bad arguments, and a query failing half-way.
#include <string>
#include <vector>

#include "UxDbAgent.h"
#include "UxLog.h"
#include "postgres_server.h"
#include "url_matching_module.h"

namespace {

class UrlListDbTest : public bexo_test::PostgresTest {
 protected:
  void SetUp() override {
    PostgresTest::SetUp();
    LoadSchema("policy_schema.sql");
    Sql("INSERT INTO tb_url_list VALUES (7, 'seven'), (8, 'eight');"
        "INSERT INTO tb_url_list_entry VALUES (7, 'b.example'), (7, 'a.example'), (7, 'a.example'),"
        " (8, 'other.example');"
        "INSERT INTO tb_file_list VALUES (3, 'files');"
        "INSERT INTO tb_file_list_entry VALUES (3, 'evil.exe'), (3, 'evil.exe'), (3, 'x.scr');"
        "INSERT INTO tb_custom_category VALUES (40, 'forty'), (41, 'forty-one');"
        "INSERT INTO tb_custom_category_url VALUES (40, 'cc.example/*'), (41, 'dd.example'),"
        " (41, 'ee.example');");
    UxLog::setSink([this](const UxLogRecord& r) { log_.push_back(r.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    PostgresTest::TearDown();
  }

  // The policy and list identifier of the rule that matches `url`.
  std::pair<policies, int> Find(const char* url) {
    policies policy = unknown_policy;
    std::string rule, identifier, expiry;
    int list_id = -1;
    if (module_.find_entry(url, policy, rule, identifier, expiry, list_id, false) != entry_found) {
      return {unknown_policy, -1};
    }
    return {policy, list_id};
  }
  bool Logged(const std::string& text) const {
    for (const std::string& line : log_) {
      if (line == text) return true;
    }
    return false;
  }

  const std::string sql_dir_ = BEXO_SOURCE_DIR "/sql";
  url_matching_module module_;
  std::vector<std::string> log_;
};

TEST_F(UrlListDbTest, LoadsEachListTypeWithItsIdentifiers) {
  struct Case {
    int list_id, list_type;
    int size_after;
    const char* url;
    int expected_list_id;
  };
  const Case cases[] = {
      {7, 1, 2, "a.example", 7},   // 'a.example' twice in a row: added once
      {7, 1, 2, "b.example", 7},   // loading again adds nothing new
      {3, 2, 4, "evil.exe", 3},    // file list: the caller's identifier
      {0, 100, 7, "cc.example/page", 40},
      {0, 100, 7, "ee.example", 41},  // custom categories: each row's own ListID
  };
  UxDbAgent agent("Database");
  for (const Case& c : cases) {
    EXPECT_TRUE(module_.deserialization(c.list_id, c.list_type, sql_dir_.c_str(), agent)) << c.url;
    EXPECT_EQ(c.size_after, module_.user_graph().size()) << c.url;
    EXPECT_EQ(std::make_pair(allow_policy, c.expected_list_id), Find(c.url)) << c.url;
  }
  EXPECT_EQ(std::make_pair(unknown_policy, -1), Find("other.example"));
  EXPECT_TRUE(Logged("url_rule_serialization_io::deserialize_db, deserializing CC list"));
}

TEST_F(UrlListDbTest, BadArgumentsAreRefusedBeforeTheStore) {
  UxDbAgent agent("Database");
  EXPECT_FALSE(module_.deserialization(7, 3, sql_dir_.c_str(), agent));
  EXPECT_TRUE(Logged("Invalid list type 3"));
  EXPECT_FALSE(module_.deserialization(7, 1, "", agent));
  EXPECT_FALSE(module_.deserialization(7, 1, nullptr, agent));
  EXPECT_TRUE(Logged("UxListQuery::init(), invalid argument(s)"));
  EXPECT_FALSE(module_.deserialization(7, 1, root().c_str(), agent)) << "no query file there";
  EXPECT_EQ(0, module_.user_graph().size());
  double_linked_graph graph;
  EXPECT_FALSE(graph.deserialize_db(7, 3, agent)) << "unknown type, no query run";
}

TEST_F(UrlListDbTest, QueryFailingHalfWayThrowsAndKeepsEarlierRules) {
  // Rows 1 and 2 arrive, then the server fails on row 3.
  bexo_test::WriteFile(root() + "/sql/pm_GetURLList.sql",
                       "SELECT CASE WHEN n < 3 THEN 'u' || n || '.example'"
                       " ELSE (1 / (n - 3))::text END AS url FROM generate_series(1, 5) n WHERE $1 > 0");
  UxDbAgent agent("Database");
  const std::string dir = root() + "/sql";
  try {
    module_.deserialization(9, 1, dir.c_str(), agent);
    FAIL() << "no exception";
  } catch (const UxDbException& e) {
    EXPECT_NE(std::string::npos, std::string(e.what()).find("division by zero")) << e.what();
  }
  EXPECT_TRUE(Logged("url_rule_serialization_io::_deserialize_list() failed"));
  EXPECT_EQ(2, module_.user_graph().size());
  EXPECT_EQ(std::make_pair(allow_policy, 9), Find("u2.example"));
  // The connection stays usable and the store writable afterwards.
  EXPECT_TRUE(module_.deserialization(7, 1, sql_dir_.c_str(), agent));
  EXPECT_EQ(4, module_.user_graph().size());
}

TEST_F(UrlListDbTest, StoppedServerOrBadSettingsThrowWithTheReason) {
  DbSettings settings = Settings();
  settings.database = "no_such_database";
  UxDbAgent agent(settings);
  try {
    module_.deserialization(7, 1, sql_dir_.c_str(), agent);
    FAIL() << "no exception";
  } catch (const UxDbException& e) {
    EXPECT_NE(std::string::npos, std::string(e.what()).find("no_such_database")) << e.what();
  }
}

}  // namespace
