// The libpq connection against a real server: rows one at a time, column
// reads, an abandoned result, and failures as UxDbException with the
// server's message.
#include "UxDbConnect.h"

#include <functional>
#include <string>

#include "UxDbAgent.h"
#include "UxSqlLoader.h"
#include "postgres_server.h"

namespace {

class UxDbConnectTest : public bexo_test::PostgresTest {};

std::string Error(const std::function<void()>& call) {
  try {
    call();
  } catch (const UxDbException& e) {
    return e.what();
  }
  return "(no exception)";
}

TEST_F(UxDbConnectTest, RowsColumnsAndFailures) {
  UxDbAgent agent("Database");
  UxDbConnect& db = agent.getConnection();
  db.executeSQL("SELECT n AS num, 'v' || n AS Text, NULL::text AS nothing FROM generate_series(1, 3) n", 0);
  std::string seen;
  while (db.fetchNextRow() == 0) {
    seen += std::to_string(db.getColValInt("NUM")) + db.getColVal("text") + "[" + db.getColVal("nothing") + "]";
    EXPECT_EQ(0, db.getColValInt("nothing"));
  }
  EXPECT_EQ("1v1[]2v2[]3v3[]", seen);
  EXPECT_EQ(1, db.fetchNextRow()) << "stays at the end";

  // A query abandoned after one row does not disturb the next one.
  db.executeSQL("SELECT n FROM generate_series(1, 100000) n", 0);
  ASSERT_EQ(0, db.fetchNextRow());
  db.executeSQL("CREATE TABLE t (x int)", 1);
  db.executeSQL("INSERT INTO t VALUES (7)", 1);
  db.executeSQL("SELECT x FROM t", 0);
  ASSERT_EQ(0, db.fetchNextRow());
  EXPECT_EQ(7, db.getColValInt("x"));

  const struct {
    std::function<void()> call;
    const char* message;
  } failures[] = {
      {[&] { db.getColVal("missing"); }, "no column missing"},
      {[&] { db.executeSQL("SELECT 'abc' AS a", 0), db.fetchNextRow(), db.getColValInt("a"); }, "not an integer"},
      {[&] { db.executeSQL("SELECT 9999999999 AS a", 0), db.fetchNextRow(), db.getColValInt("a"); }, "not an integer"},
      {[&] { db.executeSQL("SELEC 1", 0), db.fetchNextRow(); }, "syntax error"},
      {[&] { db.executeSQL("SELECT * FROM no_such_table", 1); }, "no_such_table"},
      {[&] { UxSqlLoader(root().c_str()).loadSQL(nullptr, 10, "none.sql"); }, "cannot read"},
  };
  for (const auto& f : failures) {
    EXPECT_NE(std::string::npos, Error(f.call).find(f.message)) << Error(f.call);
  }
}

TEST_F(UxDbConnectTest, LoaderFillsParametersSafely) {
  bexo_test::WriteFile(root() + "/q.sql", "SELECT $1::int + 1 AS a, $2::text AS b -- $1\n");
  UxSqlLoader loader(root().c_str());
  char text[128];
  loader.loadSQL(text, sizeof text, "q.sql", 41, "it's; DROP TABLE x");
  EXPECT_STREQ("SELECT 41::int + 1 AS a, 'it''s; DROP TABLE x'::text AS b -- 41", text);
  UxDbAgent agent("Database");
  agent.getConnection().executeSQL(text, 0);
  ASSERT_EQ(0, agent.getConnection().fetchNextRow());
  EXPECT_EQ(42, agent.getConnection().getColValInt("a"));
  EXPECT_STREQ("it's; DROP TABLE x", agent.getConnection().getColVal("b"));
  EXPECT_NE(std::string::npos, Error([&] { loader.loadSQL(text, 20, "q.sql", 1, "x"); }).find("does not fit"));
  EXPECT_NE(std::string::npos, Error([&] { loader.loadSQL(text, sizeof text, "q.sql", 1); }).find("$2"));
}

}  // namespace
