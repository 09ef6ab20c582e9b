// Report import into a real PostgreSQL server through the real psql client:
// every record kind written by the writers loads with no row lost or
// shifted, however hostile its fields; failures give -2 or -1 as promised,
// and nothing runs for an unknown file name or an over-long command.
#include <utf8.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Report_Log_Read_Write.h"
#include "UxLog.h"
#include "password_cipher.h"
#include "postgres_server.h"
#include "report_files.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::RunCommand;
using bexo::ShellQuote;
using bexo_test::SplitFields;
using bexo_test::SplitLines;
using bexo_test::WriteFile;

class ReportImportTest : public bexo_test::PostgresTest {
 protected:
  void SetUp() override {
    PostgresTest::SetUp();
    LoadSchema("report_schema.sql");
    UxLog::setSink([this](const UxLogRecord& r) { log_ += r.text + "\n"; });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    PostgresTest::TearDown();
  }
  std::string LogDir() { return Path("/etc/kvelo/log"); }

  // Rows of `table` as psql prints them, NULL as "".
  std::vector<std::vector<std::string>> Rows(const std::string& table) {
    std::string output;
    EXPECT_EQ(0, RunCommand(bexo_test::PsqlCommand(database()) + " -At -F \"$(printf '\\037')\"" +
                                " -R \"$(printf '\\036')\" -c 'SELECT * FROM " + table + "'",
                            &output));
    std::vector<std::vector<std::string>> rows;
    if (!output.empty() && output.back() == '\n') output.pop_back();
    for (const std::string& row : SplitFields(output, '\x1e')) {
      if (!row.empty() && row != "\n") rows.push_back(SplitFields(row, '\x1f'));
    }
    return rows;
  }
  std::vector<std::string> ColumnTypes(const std::string& table) {
    return SplitLines(Sql("SELECT data_type FROM information_schema.columns WHERE table_name = '" + table +
                          "' ORDER BY ordinal_position"));
  }

  std::string log_;
};

// A field as the database should hold it: the file's bytes less a UTF-8
// character that the writer's width cut (judged by utfcpp).
std::string Loaded(std::string field) {
  for (int i = 0; i < 3 && !field.empty() && static_cast<unsigned char>(field.back()) >= 0x80 &&
                  utf8::find_invalid(field.begin(), field.end()) != field.end();
       ++i) {
    field.pop_back();
  }
  return field;
}

std::vector<std::string> HostileValues() {
  std::vector<std::string> values = {"plain",   "ends\\",     "in\\side",  "\\.",      "\\N",     "\\t",
                                     "\\",      "two\\\\",    "\"q'uote",  "\xff\xfe", "caf\xc3\xa9",
                                     "a\rb",    "<&amp;>",    ""};
  // A character of 2, 3 and 4 bytes cut after each of its bytes at every width the layouts use.
  const std::string characters[] = {"\xc3\xa9", "\xe6\x97\xa5", "\xf0\x9f\x98\x80"};
  for (int width : {32, 50, 64, 100, 128, 256, 300, 1024}) {
    for (const std::string& c : characters) {
      for (size_t kept = 1; kept < c.size(); ++kept) values.push_back(std::string(width - kept, 'a') + c);
    }
  }
  return values;
}

TEST_F(ReportImportTest, EveryRecordKindLoadsEveryLineAsWritten) {
  const std::string bexo = BEXO_CLI_PATH;
  std::string kinds;
  ASSERT_EQ(0, RunCommand(bexo + " report kinds", &kinds));
  const std::vector<std::string> values = HostileValues();
  const std::string env = "BEXO_ROOT=" + ShellQuote(root()) + " ";
  for (const std::string& line : SplitLines(kinds)) {
    std::istringstream words(line);
    std::string kind, field;
    words >> kind;
    size_t count = 0;
    while (words >> field) ++count;
    std::string input;
    for (const std::string& v : values) {
      for (size_t i = 0; i < count; ++i) input += (i ? "\t" : "") + v;
      input += "\n";
    }
    WriteFile(root() + "/input", input);
    // Status 1: a record too long for its kind's buffer ended the input; the
    // records before it are in the file, which is what is compared below.
    EXPECT_LE(RunCommand(env + bexo + " report write " + kind + " - < " + root() + "/input", nullptr), 1) << kind;
    // Tabs and line feeds passed as arguments.
    std::string args;
    for (size_t i = 0; i < count; ++i) args += " " + ShellQuote("tab\there\nline");
    ASSERT_EQ(0, RunCommand(env + bexo + " report write " + kind + args, nullptr)) << kind;
  }

  std::map<std::string, size_t> lines_per_table;
  std::map<std::string, std::vector<std::string>> lines_of_table;
  for (const std::string& name : bexo_test::ListFiles(LogDir(), "report_log.")) {
    const std::string file = LogDir() + "/" + name;
    const char* table = Report_Log_Read_Write::ImportTableFor(file.c_str());
    ASSERT_NE(nullptr, table) << name;
    LoginAttributes login(true);
    long long rows = -1;
    ASSERT_EQ(0, Report_Log_Read_Write::ImportToDB(file.c_str(), login, &rows)) << name << "\n" << log_;
    // Read after the import: the carriage returns are stripped in place.
    const std::vector<std::string> lines = SplitLines(ReadFile(file));
    EXPECT_EQ(lines.size(), static_cast<size_t>(rows)) << name;
    for (const std::string& l : lines) lines_of_table[table].push_back(l);
  }
  EXPECT_EQ(8u, lines_of_table.size());
  for (const auto& [table, lines] : lines_of_table) {
    auto rows = Rows(table);
    const auto types = ColumnTypes(table);
    ASSERT_EQ(lines.size(), rows.size()) << table;
    // Row order in the heap is not insertion order: compare sorted rows,
    // without the timestamp columns (printed in the session's zone).
    std::vector<std::vector<std::string>> expected;
    for (const std::string& line : lines) {
      std::vector<std::string> fields = SplitFields(line);
      ASSERT_LE(fields.size(), types.size()) << table;
      fields.resize(types.size());  // the short layout's padding is NULL
      for (std::string& f : fields) f = Loaded(f);
      expected.push_back(fields);
    }
    for (auto* set : {&expected, &rows}) {
      for (auto& row : *set) {
        ASSERT_EQ(types.size(), row.size()) << table;
        for (size_t c = 0; c < types.size(); ++c) {
          if (types[c].find("timestamp") != std::string::npos) row[c].clear();
        }
      }
      std::sort(set->begin(), set->end());
    }
    EXPECT_EQ(expected, rows) << table;
  }
  // The short violation layout is padded with NULLs.
  EXPECT_NE("0\n", Sql("SELECT count(*) FROM tb_violation WHERE info_number3 IS NULL"));
  EXPECT_NE("0\n", Sql("SELECT count(*) FROM tb_violation WHERE info_number3 IS NOT NULL"));
}

TEST_F(ReportImportTest, FailuresAndRefusals) {
  const std::string crlf = "srv\t2026-01-02 03:04:05+0000\tm1\tv\r\n";
  const std::string file = LogDir() + "/report_log.performance.20260102";
  WriteFile(file, crlf);
  LoginAttributes login(true);

  // Unknown name and over-long command: logged, -1, and not even the
  // carriage-return step runs.
  const std::string unknown = LogDir() + "/report_log.unknown.20260102";
  WriteFile(unknown, crlf);
  EXPECT_EQ(-1, Report_Log_Read_Write::ImportToDB(unknown.c_str(), login));
  EXPECT_NE(std::string::npos, log_.find("Unknown report import file: " + unknown));
  const std::string long_name = LogDir() + "/" + std::string(150, 'x') + ".performance.20260102";
  WriteFile(long_name, crlf);
  EXPECT_EQ(-1, Report_Log_Read_Write::ImportToDB(long_name.c_str(), login));
  EXPECT_NE(std::string::npos, log_.find("psql command to large"));
  EXPECT_EQ(crlf, ReadFile(unknown));
  EXPECT_EQ(crlf, ReadFile(long_name));

  // A stopped server: the client exits with 2.
  LoginAttributes stopped = login;
  snprintf(stopped.host, sizeof stopped.host, "%s", root().c_str());  // no socket there
  EXPECT_EQ(-2, Report_Log_Read_Write::ImportToDB(file.c_str(), stopped));
  EXPECT_EQ(-1, Report_Log_Read_Write::CheckDBConnection(stopped));
  // A line the table refuses: the whole file fails and nothing is kept.
  WriteFile(file, "srv\t2026-01-02 03:04:05+0000\tm1\tv\nsrv\tnot a date\tm2\tv\n");
  EXPECT_EQ(-1, Report_Log_Read_Write::ImportToDB(file.c_str(), login));
  EXPECT_EQ("0\n", Sql("SELECT count(*) FROM tb_performance_value"));
  EXPECT_EQ(0, Report_Log_Read_Write::CheckDBConnection(login));
}

TEST_F(ReportImportTest, LinesNoWriterMakesStillLoad) {
  const std::string file = LogDir() + "/report_log.performance.20260102";
  const std::string d = "\t2026-01-02 03:04:05+0900\t";
  WriteFile(file, "s1" + d + "bad\xff" "byte\tv\n"
                  "\n"
                  "s2" + d + "m\tv\textra\\\tmore\n"
                  "s3" + d + "nul" + std::string(1, '\0') + "\tv\n"
                  "s4\n"
                  "s5" + d + "last line without feed\tv");
  LoginAttributes login(true);
  long long rows = 0;
  ASSERT_EQ(0, Report_Log_Read_Write::ImportToDB(file.c_str(), login, &rows)) << log_;
  EXPECT_EQ(5, rows);
  EXPECT_EQ("s1|bad%FFbyte|v\n"
            "s2|m|v\textra\\\tmore\n"
            "s3|nul%00|v\n"
            "s4|NULL|NULL\n"
            "s5|last line without feed|v\n",
            Sql("SELECT server, coalesce(metric_id, 'NULL'), coalesce(metric_value, 'NULL')"
                " FROM tb_performance_value ORDER BY server"));
}

TEST_F(ReportImportTest, PasswordReachesTheClientOnlyThroughItsEnvironment) {
  // Roles belong to the whole server, which other tests share.
  Sql("DO $$BEGIN CREATE ROLE bexo_pw LOGIN; EXCEPTION WHEN duplicate_object THEN NULL; END$$;"
      "ALTER ROLE bexo_pw PASSWORD 's3cret pass'; GRANT SELECT ON tb_list TO bexo_pw");
  char sealed[512];
  ASSERT_GT(NewEncryptStr("s3cret pass", sealed, sizeof sealed), 0);
  struct Case {
    std::string password;
    int expected;
  };
  const Case cases[] = {{sealed, 0}, {"v1:AAAA", -1}, {"", -1}};
  for (const Case& c : cases) {
    WriteFile(Path("/etc/kvelo/morvane.ini"), "[Database_Log]\nDB=" + database() + "\nUser=bexo_pw\nPassword=" +
                                                  c.password + "\nDB_HOSTNAME=" + bexo_test::PostgresSocketDir() +
                                                  "\nDB_PORT=5432\n");
    LoginAttributes login(true);
    EXPECT_EQ(c.expected, Report_Log_Read_Write::CheckDBConnection(login)) << c.password;
  }
  EXPECT_EQ(std::string::npos, log_.find("s3cret")) << log_;
}

}  // namespace
