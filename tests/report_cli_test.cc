// The bexo report and bexo syslog commands, run as a script would.
#include <string>

#include "report_files.h"
#include "syslog_sink.h"
#include "temp_root.h"

namespace {

using bexo_test::RunCommand;

class ReportCliTest : public bexo_test::TempRootTest {
 protected:
  int Bexo(const std::string& arguments, std::string* output = nullptr) {
    std::string ignored;
    return RunCommand(std::string(BEXO_CLI_PATH) + " " + arguments + " 2>/dev/null", output ? output : &ignored);
  }
  std::string Family(const std::string& kind) {
    return bexo_test::ReadFamily(Path("/etc/kvelo/log"), "report_log." + kind + ".");
  }
};

TEST_F(ReportCliTest, WriteThenTail) {
  ASSERT_EQ(Bexo("report write performance gw cpu 42"), 0);
  ASSERT_EQ(Bexo("report write systemevent 18 gw proxy 'disk full'"), 0);
  std::vector<std::string> fields = bexo_test::SplitFields(Family("performance"));
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(fields[0] + "|" + fields[2] + "|" + fields[3], "gw|cpu|42\n");
  std::string table;
  ASSERT_EQ(Bexo("report tail systemevent", &table), 0);
  std::vector<std::string> rows = bexo_test::SplitLines(table);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].substr(0, 6), "server");
  EXPECT_NE(rows[1].find("2  "), std::string::npos) << "level 18 is written as 2";
  EXPECT_NE(rows[1].find("disk full"), std::string::npos);
}

TEST_F(ReportCliTest, RecordsFromStandardInput) {
  ASSERT_EQ(RunCommand("printf 'a\\tm1\\t1\\nb\\tm2\\t2\\n' | " + std::string(BEXO_CLI_PATH) +
                           " report write performance -",
                       nullptr),
            0);
  EXPECT_EQ(bexo_test::SplitLines(Family("performance")).size(), 2u);
}

TEST_F(ReportCliTest, WrongUsageIsExitTwo) {
  EXPECT_EQ(Bexo("report write performance only-one"), 2);
  EXPECT_EQ(Bexo("report write nosuchkind a"), 2);
  EXPECT_EQ(Bexo("report tail nosuchfamily"), 2);
  EXPECT_EQ(Bexo("report"), 2);
  EXPECT_EQ(Bexo("report tail app"), 1) << "no records yet";
}

TEST_F(ReportCliTest, SyslogTestReachesTheConfiguredSocket) {
  bexo_test::SyslogSink sink(Path("/var/bexo/log.sock"));
  ASSERT_TRUE(sink.ok());
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[System-Event]\nsyslog_socket = " + Path("/var/bexo/log.sock") + "\n");
  std::string output;
  ASSERT_EQ(Bexo("syslog test 777 hello", &output), 0);
  EXPECT_EQ(output, "sent event 777\n");
  bexo_test::SyslogMessage message = bexo_test::ParseRfc5424(sink.Receive());
  EXPECT_EQ(message.msgid, "777");
  EXPECT_EQ(message.text, "hello");
  EXPECT_EQ(message.app, "bexo");
}

}  // namespace
