#include "postgres_server.h"

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

namespace bexo_test {
namespace {

constexpr char kPsql[] = "/usr/lib/postgresql/15/bin/psql";

std::string StartOwnServer() {
  static std::string state = "/tmp/bexo-pg-state-" + std::to_string(getpid());
  std::string output;
  if (RunCommand(std::string(BEXO_TEST_PG_SCRIPT) + " start " + state, &output) != 0) return "";
  static const pid_t owner = getpid();
  // Only the process that started it stops it, not a forked child leaving.
  atexit([] {
    if (getpid() == owner) RunCommand(std::string(BEXO_TEST_PG_SCRIPT) + " stop " + state, nullptr);
  });
  return ReadFile(state);
}

std::string Trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

}  // namespace

const std::string& PostgresSocketDir() {
  static const std::string dir = [] {
    const char* state = getenv("BEXO_TEST_PG_STATE");
    if (state != nullptr && FileExists(state)) return Trimmed(ReadFile(state));
    return Trimmed(StartOwnServer());
  }();
  return dir;
}

std::string PsqlCommand(const std::string& database) {
  return std::string(kPsql) + " -X -h " + PostgresSocketDir() + " -U postgres -d " + database;
}

void PostgresTest::SetUp() {
  TempRootTest::SetUp();
  ASSERT_FALSE(PostgresSocketDir().empty()) << "PostgreSQL test server did not start";
  static std::atomic<int> counter{0};
  database_ = "t_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
  std::string output;
  ASSERT_EQ(RunCommand(PsqlCommand("postgres") + " -q -c 'CREATE DATABASE " + database_ + "'", &output), 0);
  WriteFile(Path("/etc/kvelo/morvane.ini"),
            "[Database]\nDB=" + database_ + "\nUser=postgres\nDB_HOSTNAME=" + PostgresSocketDir() +
                "\nDB_PORT=5432\n[Database_Log]\nDB=" + database_ + "\nUser=postgres\nDB_HOSTNAME=" +
                PostgresSocketDir() + "\nDB_PORT=5432\n");
  const std::string client = Path("/usr/bexo/PostgreSQL/bin/psql");
  std::filesystem::create_directories(std::filesystem::path(client).parent_path());
  std::filesystem::create_symlink(kPsql, client);
}

void PostgresTest::TearDown() {
  if (!database_.empty() && !PostgresSocketDir().empty()) {
    RunCommand(PsqlCommand("postgres") + " -q -c 'DROP DATABASE IF EXISTS " + database_ + " WITH (FORCE)'", nullptr);
  }
  TempRootTest::TearDown();
}

std::string PostgresTest::Sql(const std::string& sql) {
  std::string output;
  EXPECT_EQ(RunCommand(PsqlCommand(database_) + " -q -At -v ON_ERROR_STOP=1 -c " + bexo::ShellQuote(sql), &output), 0)
      << sql;
  return output;
}

void PostgresTest::LoadSchema(const std::string& file) {
  std::string output;
  ASSERT_EQ(RunCommand(PsqlCommand(database_) + " -q -v ON_ERROR_STOP=1 -f " + BEXO_SOURCE_DIR + "/sql/" + file,
                       &output),
            0);
}

DbSettings PostgresTest::Settings() const {
  DbSettings settings;
  settings.host = PostgresSocketDir();
  settings.port = "5432";
  settings.database = database_;
  settings.user = "postgres";
  settings.read = true;
  return settings;
}

}  // namespace bexo_test
