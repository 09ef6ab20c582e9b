#include "SysLogSender.h"

#include <regex>
#include <string>
#include <vector>

#include "UxLog.h"
#include "syslog_sink.h"
#include "temp_root.h"

namespace {

using bexo_test::ParseRfc5424;
using bexo_test::SyslogMessage;

const std::regex kDateField(R"(tk_date_field=\d{4}-\d\d-\d\d \d\d:\d\d:\d\d[+-]\d{4})");

// Sends through the process's SysLogSender to a socket of the test root.
class SysLogSenderTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    socket_path_ = Path("/var/bexo/syslog.sock");
    sink_.reset(new bexo_test::SyslogSink(socket_path_));
    ASSERT_TRUE(sink_->ok());
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[System-Event]\nsyslog_socket = " + socket_path_ + "\nFacility = 1\n");
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
  // True when nothing was sent before a marker event.
  bool NothingPending() {
    sender_->SendLog(1, 6, "marker");
    return Next().text == "marker";
  }

  std::string socket_path_;
  std::unique_ptr<bexo_test::SyslogSink> sink_;
  SysLogSender* sender_ = nullptr;
  std::vector<std::string> messages_;
};

TEST_F(SysLogSenderTest, AccessMessage) {
  ASSERT_EQ(sender_->SendAccessLog("alice", "http", "www.example.com", 0, "/a/b.html?x", 1234, "text/html",
                                   "gw", "10.0.0.1", "1.2.3.4", "GET", "u1", 7, 2),
            0);
  SyslogMessage message = Next();
  EXPECT_EQ(message.msgid, "321638");
  EXPECT_EQ(message.text,
            "tk_username=alice,tk_url=http://www.example.com/a/b.html?x,tk_size=1234,tk_date_field=DATE,"
            "tk_protocol=http,tk_mime_content=text/html,tk_server=gw,tk_client_ip=10.0.0.1,tk_server_ip=1.2.3.4,"
            "tk_domain=www.example.com,tk_path=/a/b.html,tk_file_name=b.html?x,tk_operation=GET,tk_uid=u1,"
            "tk_category=7,tk_category_type=2");
}

struct AccessEventCase {
  const char* name;
  const char* protocol;
  const char* operation;
  const char* event;
};

class AccessEventTest : public SysLogSenderTest, public ::testing::WithParamInterface<AccessEventCase> {};

TEST_P(AccessEventTest, ProtocolAndOperationPickTheEvent) {
  sender_->SendAccessLog("u", GetParam().protocol, "h", 0, "/", 0, "", "", "", "", GetParam().operation, "", 0, 0);
  EXPECT_EQ(Next().msgid, GetParam().event);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AccessEventTest,
    ::testing::Values(AccessEventCase{"Web", "http", "GET", "321638"},
                      AccessEventCase{"FtpGet", "ftp", "get", "324822"},
                      AccessEventCase{"FtpOther", "FTP", "PUT", "324838"},
                      AccessEventCase{"FtpPrefixOfGet", "FTP", "G", "324822"},
                      AccessEventCase{"FtpLongerOperation", "FTP", "GETS", "324838"},
                      AccessEventCase{"EmptyProtocolIsFtp", "", "", "324822"},
                      AccessEventCase{"PrefixOfFtp", "f", "RETR", "324838"},
                      AccessEventCase{"LongerThanFtp", "ftps", "GET", "321638"}),
    [](const ::testing::TestParamInfo<AccessEventCase>& param) { return std::string(param.param.name); });

TEST_F(SysLogSenderTest, BlockingMessageAndFilterActions) {
  const char* expected_events[] = {"321618", "321618", "321650", "321666", "321682"};
  for (int action = 0; action <= 4; ++action) {
    ASSERT_EQ(sender_->SendBlockingLog("bob", "https", "ads.example", 443, "/x.js", "url", "policy", "Ads", 12,
                                       "staff", "Advertising", "u2", action),
              0);
    SyslogMessage message = Next();
    EXPECT_EQ(message.msgid, expected_events[action]);
    EXPECT_EQ(message.text,
              "tk_username=bob,tk_date_field=DATE,tk_protocol=https,tk_url=https://ads.example:443/x.js,"
              "tk_malicious_entity=,tk_file_name=x.js,tk_entity_name=,tk_action=,tk_scan_type=url,"
              "tk_blocked_by=policy,tk_rule_name=Ads,tk_opp_id=12,tk_group_name=staff,tk_category=Advertising,"
              "tk_uid=u2,tk_filter_action=" + std::to_string(action));
  }
  for (int action : {5, 6, 7}) EXPECT_EQ(sender_->SendBlockingLog("b", "http", "h", 0, "/", "", "", "", 0, "", "", "", action), 0);
  EXPECT_TRUE(NothingPending());
}

TEST_F(SysLogSenderTest, VirusMessageAndSpywarePrefix) {
  sender_->SendVirusLog("", "http", "h", 0, "/f.zip", nullptr, "f.zip/a.exe", "deleted", "realtime", "r", "", "Malware",
                        "u3");
  SyslogMessage message = Next();
  EXPECT_EQ(message.msgid, "320018");
  EXPECT_EQ(message.text,
            "tk_username=Unknown,tk_date_field=DATE,tk_protocol=http,tk_url=http://h/f.zip,tk_malicious_entity=virus,"
            "tk_file_name=f.zip,tk_entity_name=f.zip/a.exe,tk_action=deleted,tk_scan_type=realtime,tk_blocked_by=,"
            "tk_rule_name=r,tk_opp_id=0,tk_group_name=Unknown,tk_category=Malware,tk_uid=u3");
  for (const char* entity : {"Spyware", "spy", "SPYWARE"}) {
    sender_->SendVirusLog("u", "http", "h", 0, "/", entity, "", "", "", "", "", "", "");
    EXPECT_EQ(Next().msgid, "320034") << entity;
  }
  for (const char* entity : {"Spyware.Gen", "Trojan"}) {
    sender_->SendVirusLog("u", "http", "h", 0, "/", entity, "", "", "", "", "", "", "");
    EXPECT_EQ(Next().msgid, "320018") << entity;
  }
}

TEST_F(SysLogSenderTest, OtherMessagesKeepTheirKeyOrder) {
  bot_log_entry bot;
  bot.user = "eve";
  bot.protocol = "http";
  bot.host = "c2";
  bot.path = "/b";
  bot.entity_name = "Bot.X";
  bot.rule_name = "bots";
  bot.group_name = "lab";
  bot.scan_type = "scan";
  bot.action = "block";
  sender_->SendBotDetectionLog(bot);
  SyslogMessage message = Next();
  EXPECT_EQ(message.msgid, "320066");
  EXPECT_EQ(message.text,
            "tk_username=eve,tk_date_field=DATE,tk_entity_name=Bot.X,tk_rule_name=bots,tk_group_name=lab,"
            "tk_scan_type=scan,tk_action=block,tk_protocol=http,tk_url=http://c2/b");

  sender_->SendDLPLog("f", "https", "d", 0, "/up", "card", "c.xlsx", "c.xlsx", "block", "dlp", "PCI", "fin", "u6");
  message = Next();
  EXPECT_EQ(message.msgid, "320082");
  EXPECT_EQ(message.text,
            "tk_username=f,tk_date_field=DATE,tk_entity_name=c.xlsx,tk_rule_name=PCI,tk_group_name=fin,"
            "tk_scan_type=dlp,tk_action=block,tk_protocol=https,tk_url=https://d/up,tk_malicious_entity=card,"
            "tk_file_name=c.xlsx,tk_uid=u6");

  sender_->SendAppControlBlockLog("g", "Games", "steam", "NoGames", "kids", "10.0.0.9");
  message = Next();
  EXPECT_EQ(message.msgid, "331218");
  EXPECT_EQ(message.text,
            "tk_username=g,tk_date_field=DATE,tk_category=Games,tk_protocol=steam,tk_rule_name=NoGames,"
            "tk_group_name=kids,tk_client_ip=10.0.0.9");

  kls_cleanuplog_entry cleanup;
  cleanup.uid = "u8";
  cleanup.entity_name = "t.exe";
  cleanup.entity_type = "file";
  cleanup.entity_subtype = "pe";
  cleanup.function_code = "DEL";
  sender_->SendKLSCleanUpLog(cleanup);
  message = Next();
  EXPECT_EQ(message.msgid, "320050");
  EXPECT_EQ(message.text,
            "tk_uid=u8,tk_hostname=Unknown,tk_date_field=DATE,tk_entity_name=t.exe,tk_entity_type=file,"
            "tk_entity_subtype=pe,tk_function_code=DEL");

  sender_->SendRkdxLog("h", "dns", "cb/x", 0, "/q", "laptop", "Callback", "g", "10.1.1.1", "6.6.6.6", 53, 2, 4, 1);
  message = Next();
  EXPECT_EQ(message.msgid, "320098");
  EXPECT_EQ(message.text,
            "tk_username=h,tk_date_field=DATE,tk_protocol=dns,tk_url=dns://cb/x/q,tk_domain=cb,tk_device_name=laptop,"
            "tk_rule_name=Callback,tk_group_name=g,tk_client_ip=10.1.1.1,tk_server_ip=6.6.6.6,"
            "tk_destination_port=53,tk_rkdx_source=2,tk_risk_level=4,tk_filter_action=1");

  sender_->SendPerformanceLog("gw", "cpu", "42");
  message = Next();
  EXPECT_EQ(message.msgid, "328022");
  EXPECT_EQ(message.text, "tk_server=gw,tk_date_field=DATE,tk_metric_id=cpu,tk_metric_value=42,");

  sender_->SendSystemEventLog(4242, "gw", "proxy", "line1\nline2\t\xff");
  message = Next();
  EXPECT_EQ(message.msgid, "4242");
  EXPECT_EQ(message.text, "tk_server=gw,tk_date_field=DATE,tk_source=proxy,tk_description=line1 line2 %FF");
}

TEST_F(SysLogSenderTest, ValuesAreCutToTheirWidths) {
  std::string user(400, 'u');
  std::string server(100, 's');
  std::string metric(500, 'm');
  sender_->SendPerformanceLog(server.c_str(), metric.c_str(), "1");
  EXPECT_EQ(Next().text, "tk_server=" + std::string(64, 's') + ",tk_date_field=DATE,tk_metric_id=" +
                             std::string(300, 'm') + ",tk_metric_value=1,");
  sender_->SendAppControlBlockLog(user.c_str(), "", "", "", "", "");
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
