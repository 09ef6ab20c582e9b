#include "SysLogSender.h"

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "UxLog.h"
#include "syslog_sink.h"
#include "temp_root.h"

namespace {

using bexo_test::ParseRfc5424;
using bexo_test::SyslogMessage;

const std::regex kDateField(R"(tk_date_field=\d{4}-\d\d-\d\d \d\d:\d\d:\d\d[+-]\d{4})");

class SysLogSenderTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    sink_.reset(new bexo_test::SyslogSink(Path("/var/bexo/syslog.sock")));
    ASSERT_TRUE(sink_->ok());
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[System-Event]\nsyslog_socket = " + Path("/var/bexo/syslog.sock") + "\nFacility = 1\n");
    sender_ = SysLogSender::GetInstance();
    SysLogSender::RefreshConfig();
    UxLog::setSink([this](const UxLogRecord& record) { messages_.push_back(record.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    sink_.reset();
    TempRootTest::TearDown();
  }

  // The next message, its date replaced by "DATE".
  SyslogMessage Next() {
    SyslogMessage message = ParseRfc5424(sink_->Receive());
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.priority, 14) << "facility 1, severity 11 sent as informational";
    message.text = std::regex_replace(message.text, kDateField, "tk_date_field=DATE");
    return message;
  }

  std::unique_ptr<bexo_test::SyslogSink> sink_;
  SysLogSender* sender_ = nullptr;
  std::vector<std::string> messages_;
};

// One row per message kind: its event id and its exact text.
TEST_F(SysLogSenderTest, MessagesKeepTheirKeyOrder) {
  const struct {
    const char* name;
    void (*send)(SysLogSender&);
    const char* msgid;
    const char* text;
  } cases[] = {
      {"access", [](SysLogSender& s) {
         EXPECT_EQ(s.SendAccessLog("alice", "http", "www.example.com", 0, "/a/b.html?x", 1234, "text/html", "gw",
                                   "10.0.0.1", "1.2.3.4", "GET", "u1", 7, 2), 0); },
       "321638",
       "tk_username=alice,tk_url=http://www.example.com/a/b.html?x,tk_size=1234,tk_date_field=DATE,"
       "tk_protocol=http,tk_mime_content=text/html,tk_server=gw,tk_client_ip=10.0.0.1,tk_server_ip=1.2.3.4,"
       "tk_domain=www.example.com,tk_path=/a/b.html,tk_file_name=b.html?x,tk_operation=GET,tk_uid=u1,"
       "tk_category=7,tk_category_type=2"},
      {"blocking", [](SysLogSender& s) {
         EXPECT_EQ(s.SendBlockingLog("bob", "https", "ads.example", 443, "/x.js", "url", "policy", "Ads", 12, "staff",
                                     "Advertising", "u2", 2), 0); },
       "321650",
       "tk_username=bob,tk_date_field=DATE,tk_protocol=https,tk_url=https://ads.example:443/x.js,"
       "tk_malicious_entity=,tk_file_name=x.js,tk_entity_name=,tk_action=,tk_scan_type=url,"
       "tk_blocked_by=policy,tk_rule_name=Ads,tk_opp_id=12,tk_group_name=staff,tk_category=Advertising,"
       "tk_uid=u2,tk_filter_action=2"},
      {"virus", [](SysLogSender& s) {
         s.SendVirusLog("", "http", "h", 0, "/f.zip", nullptr, "f.zip/a.exe", "deleted", "realtime", "r", "",
                        "Malware", "u3"); },
       "320018",
       "tk_username=Unknown,tk_date_field=DATE,tk_protocol=http,tk_url=http://h/f.zip,tk_malicious_entity=virus,"
       "tk_file_name=f.zip,tk_entity_name=f.zip/a.exe,tk_action=deleted,tk_scan_type=realtime,tk_blocked_by=,"
       "tk_rule_name=r,tk_opp_id=0,tk_group_name=Unknown,tk_category=Malware,tk_uid=u3"},
      {"bot", [](SysLogSender& s) {
         s.SendBotDetectionLog(bot_log_entry{"eve", "http", "c2", 0, "/b", "Bot.X", "block", "scan", "bots", "lab",
                                             nullptr, 0}); },
       "320066",
       "tk_username=eve,tk_date_field=DATE,tk_entity_name=Bot.X,tk_rule_name=bots,tk_group_name=lab,"
       "tk_scan_type=scan,tk_action=block,tk_protocol=http,tk_url=http://c2/b"},
      {"dlp", [](SysLogSender& s) {
         s.SendDLPLog("f", "https", "d", 0, "/up", "card", "c.xlsx", "c.xlsx", "block", "dlp", "PCI", "fin", "u6"); },
       "320082",
       "tk_username=f,tk_date_field=DATE,tk_entity_name=c.xlsx,tk_rule_name=PCI,tk_group_name=fin,"
       "tk_scan_type=dlp,tk_action=block,tk_protocol=https,tk_url=https://d/up,tk_malicious_entity=card,"
       "tk_file_name=c.xlsx,tk_uid=u6"},
      {"app control", [](SysLogSender& s) {
         s.SendAppControlBlockLog("g", "Games", "steam", "NoGames", "kids", "10.0.0.9"); },
       "331218",
       "tk_username=g,tk_date_field=DATE,tk_category=Games,tk_protocol=steam,tk_rule_name=NoGames,"
       "tk_group_name=kids,tk_client_ip=10.0.0.9"},
      {"cleanup", [](SysLogSender& s) {
         s.SendKLSCleanUpLog(kls_cleanuplog_entry{"u8", nullptr, "t.exe", "file", "pe", "DEL"}); },
       "320050",
       "tk_uid=u8,tk_hostname=Unknown,tk_date_field=DATE,tk_entity_name=t.exe,tk_entity_type=file,"
       "tk_entity_subtype=pe,tk_function_code=DEL"},
      {"contact alert", [](SysLogSender& s) {
         s.SendRkdxLog("h", "dns", "cb/x", 0, "/q", "laptop", "Callback", "g", "10.1.1.1", "6.6.6.6", 53, 2, 4, 1); },
       "320098",
       "tk_username=h,tk_date_field=DATE,tk_protocol=dns,tk_url=dns://cb/x/q,tk_domain=cb,tk_device_name=laptop,"
       "tk_rule_name=Callback,tk_group_name=g,tk_client_ip=10.1.1.1,tk_server_ip=6.6.6.6,"
       "tk_destination_port=53,tk_rkdx_source=2,tk_risk_level=4,tk_filter_action=1"},
      {"performance", [](SysLogSender& s) { s.SendPerformanceLog("gw", "cpu", "42"); }, "328022",
       "tk_server=gw,tk_date_field=DATE,tk_metric_id=cpu,tk_metric_value=42,"},
      {"system event", [](SysLogSender& s) { s.SendSystemEventLog(4242, "gw", "proxy", "line1\nline2\t\xff"); },
       "4242", "tk_server=gw,tk_date_field=DATE,tk_source=proxy,tk_description=line1 line2 %FF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    c.send(*sender_);
    SyslogMessage message = Next();
    EXPECT_EQ(message.msgid, c.msgid);
    EXPECT_EQ(message.text, c.text);
  }
}

// The event id follows the protocol and operation (access), the filter action
// (blocking: 5 to 7 send nothing) and the malicious entity (virus).
TEST_F(SysLogSenderTest, EventIdRules) {
  const struct {
    const char* protocol;
    const char* operation;
    const char* event;
  } access[] = {{"http", "GET", "321638"}, {"ftp", "get", "324822"}, {"FTP", "PUT", "324838"},
                {"FTP", "G", "324822"},    {"FTP", "GETS", "324838"}, {"", "", "324822"},
                {"f", "RETR", "324838"},   {"ftps", "GET", "321638"}};
  for (const auto& c : access) {
    sender_->SendAccessLog("u", c.protocol, "h", 0, "/", 0, "", "", "", "", c.operation, "", 0, 0);
    EXPECT_EQ(Next().msgid, c.event) << c.protocol << " " << c.operation;
  }
  const char* blocking[] = {"321618", "321618", "321650", "321666", "321682", nullptr, nullptr, nullptr};
  for (int action = 0; action < 8; ++action) {
    EXPECT_EQ(sender_->SendBlockingLog("b", "http", "h", 0, "/", "", "", "", 0, "", "", "", action), 0);
    if (blocking[action]) {
      EXPECT_EQ(Next().msgid, blocking[action]) << action;
    }
  }
  sender_->SendLog(1, 6, "marker");
  EXPECT_EQ(Next().text, "marker") << "actions 5 to 7 sent something";
  const std::pair<const char*, const char*> virus[] = {{"Spyware", "320034"}, {"spy", "320034"},
                                                       {"SPYWARE", "320034"}, {"Spyware.Gen", "320018"},
                                                       {"Trojan", "320018"}};
  for (const auto& c : virus) {
    sender_->SendVirusLog("u", "http", "h", 0, "/", c.first, "", "", "", "", "", "", "");
    EXPECT_EQ(Next().msgid, c.second) << c.first;
  }
}

TEST_F(SysLogSenderTest, ValuesAreCutToTheirWidths) {
  sender_->SendPerformanceLog(std::string(100, 's').c_str(), std::string(500, 'm').c_str(), "1");
  EXPECT_EQ(Next().text, "tk_server=" + std::string(64, 's') + ",tk_date_field=DATE,tk_metric_id=" +
                             std::string(300, 'm') + ",tk_metric_value=1,");
  sender_->SendAppControlBlockLog(std::string(400, 'u').c_str(), "", "", "", "", "");
  EXPECT_EQ(Next().text.substr(0, 12 + 256 + 1), "tk_username=" + std::string(256, 'u') + ",");
}

TEST_F(SysLogSenderTest, FailedSendIsReported) {
  sink_.reset();  // nobody listens any more
  EXPECT_NE(sender_->SendPerformanceLog("gw", "cpu", "1"), 0);
  EXPECT_NE(sender_->SendSystemEventLog(7, "gw", "s", "d"), 0);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_EQ(messages_[0], "Failed to send EVT_PERFORMANCE syslog");
  EXPECT_EQ(messages_[1], "Failed to send system event syslog");
}

}  // namespace
