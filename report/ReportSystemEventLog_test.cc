#include "ReportSystemEventLog.h"

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

  void Configure(const std::string& extra) {
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[System-Event]\nsyslog_socket = " + Path("/var/bexo/syslog.sock") + "\n" + extra);
    messages_.clear();
    Report_Log_Read_Write::RefreshConfig();
    ReportSystemEventLog::RefreshConfig();
  }
  std::string Records() { return ReadFamily(Path("/etc/kvelo/log"), "report_log.systemevent."); }

  std::unique_ptr<bexo_test::SyslogSink> sink_;
  std::vector<std::string> messages_;
};

// logtype picks the copies (text file, report record); syslog always gets the event.
TEST_F(ReportSystemEventLogTest, LogTypeChoosesTheCopies) {
  const struct {
    const char* setting;
    bool text_file, record;
    const char* message;  // expected configuration message, or ""
  } cases[] = {
      {"logtype = 0\n", false, true, ""},
      {"logtype = 1\n", true, true, ""},
      {"logtype = 2\n", true, false, ""},
      {"logtype = 2x\n", true, false, ""},
      {"logtype = x\n", true, true, "The log's configration is illegal!"},
      {"", true, true, "Get logtype from configure error."},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.setting);
    std::string prefix = "sysevt" + std::to_string(++n);
    Configure("sysevent_log = /etc/kvelo/log/" + prefix + ".log\n[admin]\n" + c.setting);
    std::vector<std::string> config_messages = messages_;
    std::string before = Records();
    ReportSystemEventLog log;
    EXPECT_EQ(log.WriteSystemEventLog(3, "gw", "proxy", "started"), 0);
    EXPECT_EQ(!ListFiles(Path("/etc/kvelo/log"), prefix + ".log.").empty(), c.text_file);
    EXPECT_EQ(Records() != before, c.record);
    EXPECT_EQ(bexo_test::ParseRfc5424(sink_->Receive()).msgid, "3");
    EXPECT_EQ(config_messages, *c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
  }
}

TEST_F(ReportSystemEventLogTest, TextBlockRecordAndSyslogOfOneEvent) {
  Configure("sysevent_log = /var/bexo/events/sys.log\n[admin]\nlogtype = 1\n");
  Report_Log_Read_Write writer;
  writer.WritePerformanceLog("gw", "cpu", "1");  // pending; the event flushes it
  ReportSystemEventLog log;
  log.WriteSystemEventLog(18, "gw\t1", "proxy", "disk\nfull");
  EXPECT_FALSE(ReadFamily(Path("/etc/kvelo/log"), "report_log.performance.").empty());
  ux_Time today;
  today.get_current_time();
  char name[64];
  snprintf(name, sizeof name, "sys.log.%04d.%02d.%02d", today.get_year(), today.get_month(), today.get_day());
  EXPECT_EQ(ListFiles(Path("/var/bexo/events"), "sys.log."), std::vector<std::string>{name});
  std::string block = bexo_test::ReadFile(Path("/var/bexo/events/") + name);
  std::regex shape(
      "Date:\t\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[+-]\\d{4}\nServer:\tgw 1\nSource:\tproxy\n"
      "Event Level:\t2\nDescription:\tdisk full\n----------------------------------\n");
  EXPECT_TRUE(std::regex_match(block, shape)) << block;
  std::vector<std::string> fields = bexo_test::SplitFields(Records());
  ASSERT_EQ(fields.size(), 5u);
  EXPECT_EQ(fields[0] + "|" + fields[2] + "|" + fields[3] + "|" + fields[4], "gw 1|2|proxy|disk full\n");
  EXPECT_EQ(bexo_test::ParseRfc5424(sink_->Receive()).msgid, "18");
}

TEST_F(ReportSystemEventLogTest, ConfigurationFailures) {
  ReportSystemEventLog::s_logType = 1;
  ReportSystemEventLog::RefreshConfig();  // no morvane.ini in this root: write both
  EXPECT_EQ(ReportSystemEventLog::s_logType, 3);
  EXPECT_EQ(messages_.at(0), "Read configure file error.");

  Configure("[admin]\nlogtype = 2\n");
  EXPECT_EQ(ReportSystemEventLog::s_sysEventLogPrefix, "/etc/kvelo/log/systemevent.log");
  EXPECT_EQ(messages_, std::vector<std::string>{"Get systemevent_log from configure error."});
  ReportSystemEventLog log;
  log.WriteSystemEventLog(1, "gw", "s", "d");
  EXPECT_EQ(ListFiles(Path("/etc/kvelo/log"), "systemevent.log.").size(), 1u);

  Configure("sysevent_log = /etc/kvelo/morvane.ini/sys.log\n[admin]\nlogtype = 2\n");
  ReportSystemEventLog unopenable;
  messages_.clear();
  EXPECT_EQ(unopenable.WriteSystemEventLog(1, "gw", "s", "d"), 0);
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_TRUE(std::regex_match(messages_[0],
                               std::regex(R"(WARNING: Failed to open performance log file \[.*/etc/kvelo/morvane\.ini/sys\.log\.\d{4}\.\d\d\.\d\d\] with \[Not a directory\])")))
      << messages_[0];
}

}  // namespace
