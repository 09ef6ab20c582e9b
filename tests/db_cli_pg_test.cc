// bexo db and bexo url load-db against a real server: what an administrator
// sees, and clear errors when the server is down or the settings are wrong.
#include <string>

#include "postgres_server.h"

namespace {

class DbCliTest : public bexo_test::PostgresTest {};

int Bexo(const std::string& args, std::string* out) { return bexo_test::RunBexo(args + " 2>&1 </dev/null", out); }

TEST_F(DbCliTest, CheckImportAndLoadList) {
  LoadSchema("report_schema.sql");
  LoadSchema("policy_schema.sql");
  Sql("INSERT INTO tb_url_list VALUES (5, 'five'); INSERT INTO tb_url_list_entry VALUES (5, 'x.example/*')");
  std::string out;
  EXPECT_EQ(0, Bexo("db check", &out)) << out;
  EXPECT_NE(std::string::npos, out.find("answers")) << out;

  const std::string file = Path("/etc/kvelo/log/report_log.performance.20260102");
  bexo_test::WriteFile(file, "s\t2026-01-02 03:04:05+0000\tm\tv\ns\t2026-01-02 03:04:05+0000\tm\tw\n");
  EXPECT_EQ(0, Bexo("db import " + file, &out)) << out;
  EXPECT_EQ(file + ": tb_performance_value, 2 rows\n", out);
  EXPECT_EQ(1, Bexo("db import " + root() + "/report_log.unknown.1 " + file, &out)) << out;
  EXPECT_NE(std::string::npos, out.find("no table for this file name")) << out;
  EXPECT_EQ("4\n", Sql("SELECT count(*) FROM tb_performance_value"));

  EXPECT_EQ(0, Bexo("url load-db --list 5 --type 1 --sql " BEXO_SOURCE_DIR "/sql http://X.example/a b.example", &out));
  EXPECT_EQ("list 5 (type 1): 1 rules\nhttp://X.example/a\tno match\nb.example\tno match\n", out);
  EXPECT_EQ(0, Bexo("url load-db --list 5 --type 1 --sql " BEXO_SOURCE_DIR "/sql X.example/a", &out));
  EXPECT_EQ("list 5 (type 1): 1 rules\nX.example/a\t[allow]\tx.example/*\tlist 5\n", out);
  EXPECT_EQ(1, Bexo("url load-db --list 5 --type 3 --sql " BEXO_SOURCE_DIR "/sql", &out));
  EXPECT_EQ(2, Bexo("url load-db --type 1", &out));

  EXPECT_EQ(0, bexo_test::RunBexo("db encrypt-password <<EOF\ns3cret\nEOF", &out));
  EXPECT_EQ(0u, out.find("v1:")) << out;
}

TEST_F(DbCliTest, ServerDownOrSettingsWrong) {
  std::string out;
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Database_Log]\nDB=x\nUser=postgres\nDB_HOSTNAME=" +
                                                           root() + "\nDB_PORT=5432\n[Database]\nDB_HOSTNAME=" +
                                                           root() + "\n");
  EXPECT_EQ(1, Bexo("db check", &out));
  EXPECT_NE(std::string::npos, out.find("does not answer")) << out;
  EXPECT_NE(std::string::npos, out.find("policy database: connection to server on socket")) << out;
  EXPECT_EQ(1, Bexo("url load-db --list 5 --type 1 --sql " BEXO_SOURCE_DIR "/sql", &out));
  EXPECT_NE(std::string::npos, out.find("policy database: connection to server")) << out;
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Database_Log]\nUser=postgres\n");
  EXPECT_EQ(1, Bexo("db import " + root() + "/report_log.access.1", &out));
  EXPECT_NE(std::string::npos, out.find("needs DB, DB_HOSTNAME and DB_PORT")) << out;
  std::remove(Path("/usr/bexo/PostgreSQL/bin/psql").c_str());
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Database_Log]\nDB=x\nDB_HOSTNAME=h\nDB_PORT=1\n");
  EXPECT_EQ(1, Bexo("db check", &out));
  EXPECT_NE(std::string::npos, out.find("no database client at")) << out;
}

}  // namespace
