#include "ReportSystemEventLog.h"

#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "LogQueue.h"
#include "Report_Log_Read_Write.h"
#include "UxLog.h"
#include "report_files.h"
#include "syslog_sink.h"
#include "temp_root.h"
#include "ux_Time.h"

namespace {

using bexo_test::ListFiles;
using bexo_test::ReadFamily;

class ReportSystemEventLogTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    sink_.reset(new bexo_test::SyslogSink(Path("/var/bexo/syslog.sock")));
    UxLog::setSink([this](const UxLogRecord& record) { messages_.push_back(record.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }

  // Writes the configuration with the given extra lines and reads it.
  void Configure(const std::string& extra) {
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[System-Event]\nsyslog_socket = " + Path("/var/bexo/syslog.sock") + "\n" + extra);
    messages_.clear();
    Report_Log_Read_Write::RefreshConfig();
    ReportSystemEventLog::RefreshConfig();
  }
  std::string TextFiles(const std::string& prefix_dir, const std::string& prefix_name) {
    return ReadFamily(Path(prefix_dir), prefix_name);
  }
  std::string Records() { return ReadFamily(Path("/etc/kvelo/log"), "report_log.systemevent."); }

  std::unique_ptr<bexo_test::SyslogSink> sink_;
  std::vector<std::string> messages_;
};

struct LogTypeCase {
  const char* name;
  const char* setting;  // the admin section's lines
  bool text_file;
  bool record;
  const char* message;  // expected configuration message, or ""
};

class LogTypeTest : public ReportSystemEventLogTest, public ::testing::WithParamInterface<LogTypeCase> {};

TEST_P(LogTypeTest, LogTypeChoosesTheCopies) {
  const LogTypeCase& c = GetParam();
  Configure(std::string("sysevent_log = /etc/kvelo/log/sysevt.log\n[admin]\n") + c.setting);
  std::vector<std::string> config_messages = messages_;
  ReportSystemEventLog log;
  EXPECT_EQ(log.WriteSystemEventLog(3, "gw", "proxy", "started"), 0);
  EXPECT_EQ(!TextFiles("/etc/kvelo/log", "sysevt.log.").empty(), c.text_file);
  EXPECT_EQ(!Records().empty(), c.record);
  EXPECT_NE(bexo_test::ParseRfc5424(sink_->Receive()).msgid, "") << "syslog always gets the event";
  if (*c.message) {
    EXPECT_NE(std::find(config_messages.begin(), config_messages.end(), c.message), config_messages.end());
  } else {
    EXPECT_TRUE(config_messages.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LogTypeTest,
    ::testing::Values(LogTypeCase{"RecordOnly", "logtype = 0\n", false, true, ""},
                      LogTypeCase{"Both", "logtype = 1\n", true, true, ""},
                      LogTypeCase{"TextOnly", "logtype = 2\n", true, false, ""},
                      LogTypeCase{"FirstCharacterDecides", "logtype = 2x\n", true, false, ""},
                      LogTypeCase{"Illegal", "logtype = x\n", true, true, "The log's configration is illegal!"},
                      LogTypeCase{"Missing", "", true, true, "Get logtype from configure error."}),
    [](const ::testing::TestParamInfo<LogTypeCase>& param) { return std::string(param.param.name); });

TEST_F(ReportSystemEventLogTest, TextBlockAndRecordOfOneEvent) {
  Configure("sysevent_log = /var/bexo/events/sys.log\n[admin]\nlogtype = 1\n");
  ReportSystemEventLog log;
  log.WriteSystemEventLog(18, "gw\t1", "proxy", "disk\nfull");
  ux_Time today;
  today.get_current_time();
  char name[64];
  snprintf(name, sizeof name, "sys.log.%04d.%02d.%02d", today.get_year(), today.get_month(), today.get_day());
  std::vector<std::string> files = ListFiles(Path("/var/bexo/events"), "sys.log.");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0], name);
  std::string block = bexo_test::ReadFile(Path("/var/bexo/events/") + name);
  std::regex shape(
      "Date:\t\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[+-]\\d{4}\nServer:\tgw 1\nSource:\tproxy\n"
      "Event Level:\t2\nDescription:\tdisk full\n----------------------------------\n");
  EXPECT_TRUE(std::regex_match(block, shape)) << block;
  struct stat st;
  ASSERT_EQ(stat((Path("/var/bexo/events/") + name).c_str(), &st), 0);

  std::vector<std::string> fields = bexo_test::SplitFields(Records());
  ASSERT_EQ(fields.size(), 5u);
  EXPECT_EQ(fields[0], "gw 1");
  EXPECT_EQ(fields[2], "2");
  EXPECT_EQ(fields[3] + "|" + fields[4], "proxy|disk full\n");
  EXPECT_EQ(bexo_test::ParseRfc5424(sink_->Receive()).msgid, "18");
}

TEST_F(ReportSystemEventLogTest, RecordingAnEventFlushesPendingReportRecords) {
  Configure("[admin]\nlogtype = 0\n");
  Report_Log_Read_Write writer;
  writer.WritePerformanceLog("gw", "cpu", "1");
  ReportSystemEventLog log;
  log.WriteSystemEventLog(1, "gw", "s", "d");
  EXPECT_FALSE(ReadFamily(Path("/etc/kvelo/log"), "report_log.performance.").empty());
}

TEST_F(ReportSystemEventLogTest, MissingPrefixKeyUsesTheDefault) {
  Configure("[admin]\nlogtype = 2\n");
  EXPECT_EQ(ReportSystemEventLog::s_sysEventLogPrefix, "/etc/kvelo/log/systemevent.log");
  EXPECT_EQ(messages_, std::vector<std::string>{"Get systemevent_log from configure error."});
  ReportSystemEventLog log;
  log.WriteSystemEventLog(1, "gw", "s", "d");
  EXPECT_EQ(ListFiles(Path("/etc/kvelo/log"), "systemevent.log.").size(), 1u);
}

TEST_F(ReportSystemEventLogTest, UnreadableConfigurationWritesBoth) {
  ReportSystemEventLog::s_logType = 1;
  ReportSystemEventLog::RefreshConfig();  // no morvane.ini in this root
  EXPECT_EQ(ReportSystemEventLog::s_logType, 3);
  EXPECT_EQ(messages_.at(0), "Read configure file error.");
}

TEST_F(ReportSystemEventLogTest, UnopenableTextFileIsReported) {
  Configure("sysevent_log = /etc/kvelo/morvane.ini/sys.log\n[admin]\nlogtype = 2\n");
  messages_.clear();
  ReportSystemEventLog log;
  messages_.clear();
  EXPECT_EQ(log.WriteSystemEventLog(1, "gw", "s", "d"), 0);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_TRUE(std::regex_match(messages_[0],
                               std::regex(R"(WARNING: Failed to open performance log file \[.*/etc/kvelo/morvane\.ini/sys\.log\.\d{4}\.\d\d\.\d\d\] with \[Not a directory\])")))
      << messages_[0];
}

}  // namespace
