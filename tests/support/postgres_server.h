// Test support: a real PostgreSQL 15 server. Under ctest the server of the
// "postgres" fixture is used (BEXO_TEST_PG_STATE names its state file);
// a test binary run by hand starts its own once and stops it at exit.
// PostgresTest gives each test a fresh database, a temp product root whose
// "morvane.ini" points sections "Database" and "Database_Log" at it, and the
// real psql client at the product's client path.
#pragma once

#include <string>

#include "db_settings.h"
#include "process_spawn.h"
#include "temp_root.h"

namespace bexo_test {

// The server's socket directory ("" when no server could be started).
const std::string& PostgresSocketDir();

// psql connected as postgres to `database` of the test server, without
// reading ~/.psqlrc; append options and arguments.
std::string PsqlCommand(const std::string& database);

class PostgresTest : public TempRootTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Runs SQL with psql (unaligned, tuples only) in this test's database;
  // returns its standard output. A failure fails the test.
  std::string Sql(const std::string& sql);
  // Loads a file of sql/ into this test's database.
  void LoadSchema(const std::string& file);
  DbSettings Settings() const;
  const std::string& database() const { return database_; }

 private:
  std::string database_;
};

}  // namespace bexo_test
