#include "Report_Log_Read_Write.h"

#include <climits>
#include <regex>
#include <ostream>
#include <string>
#include <vector>

#include "report_files.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFamily;
using bexo_test::SplitFields;
using bexo_test::SplitLines;

const std::regex kDatePattern(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d[+-]\d{4})");

class ReportWriterTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    LogQueue::s_rolloverBytes = 104857600;
    Report_Log_Read_Write::RefreshConfig();  // paths of this test's root
  }

  // The lines of one record kind, after a flush, with the date field at
  // `date_field` checked and replaced by "DATE".
  std::vector<std::string> Lines(const std::string& kind, int date_field) {
    EXPECT_EQ(Report_Log_Read_Write::FlushLog(), 0);
    std::vector<std::string> lines = SplitLines(ReadFamily(Path("/etc/kvelo/log"), "report_log." + kind + "."));
    for (std::string& line : lines) {
      std::vector<std::string> fields = SplitFields(line);
      if (date_field < 0 || static_cast<size_t>(date_field) >= fields.size()) continue;
      EXPECT_TRUE(std::regex_match(fields[date_field], kDatePattern)) << fields[date_field];
      fields[date_field] = "DATE";
      line.clear();
      for (size_t i = 0; i < fields.size(); ++i) line += (i ? "\t" : "") + fields[i];
    }
    return lines;
  }
  std::string OnlyLine(const std::string& kind, int date_field) {
    std::vector<std::string> lines = Lines(kind, date_field);
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? "" : lines[0] + "\n";
  }

  Report_Log_Read_Write writer_;
};

// One row per record kind: what is written, and every line of its family
// (newest first, the date field as "DATE").
struct RecordCase {
  const char* name;
  const char* kind;
  int date_field;
  void (*write)(Report_Log_Read_Write&);
  const char* expected;
};
void PrintTo(const RecordCase& c, std::ostream* out) { *out << c.name; }

class RecordTest : public ReportWriterTest, public ::testing::WithParamInterface<RecordCase> {};

TEST_P(RecordTest, ExactLines) {
  GetParam().write(writer_);
  std::string all;
  for (const std::string& line : Lines(GetParam().kind, GetParam().date_field)) all += line + "\n";
  EXPECT_EQ(all, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    AllKinds, RecordTest,
    ::testing::Values(
        RecordCase{"Access", "access", 3, [](Report_Log_Read_Write& w) {
                     EXPECT_EQ(w.WriteAccessLog("alice", "http", "www.example.com", 8080, "/dir/page.html?q=1", 12345,
                                                "text/html", "proxy1", "10.0.0.1", "93.184.216.34", "GET", "uid-7", 42,
                                                3, 2500, "News & <Media>", "extra\tvalue"), 0); },
                   "alice\thttp://www.example.com:8080/dir/page.html?q=1\t12345\tDATE\thttp\ttext/html\tproxy1\t"
                   "10.0.0.1\t93.184.216.34\twww.example.com\t/dir/page.html\tpage.html?q=1\tGET\tuid-7\t42\t3\t2\t"
                   "2500\tNews &amp; &lt;Media&gt;\textra value\n"},
        RecordCase{"AccessDefaults", "access", 3, [](Report_Log_Read_Write& w) {
                     w.WriteAccessLog(nullptr, "http", "h", 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, 0, 0, 999, nullptr, nullptr);
                     w.WriteAccessLog("", "ftp", "files/pub", 0, "readme", -1, "", "", "", "", "RETR", "", -5, 0, 0,
                                      "", ""); },
                   "Unknown\tftp://files/pub/readme\t-1\tDATE\tftp\t\t\t\t\tfiles\treadme\treadme\tRETR\t\t-5\t0\t0\t0\t\t\n"
                   "Unknown\thttp://h/\t0\tDATE\thttp\t\t\t\t\th\t/\t\t\t\t0\t0\t0\t999\t\t\n"},
        RecordCase{"PerformanceScrubbed", "performance", 1, [](Report_Log_Read_Write& w) {
                     w.WritePerformanceLog("srv\tone\ntwo", "caf\xc3\xa9", "caf\xc3\xa9 \xff"); },
                   "srv one two\tDATE\tcaf\xc3\xa9\tcaf%C3%A9 %FF\n"},
        RecordCase{"Virus", "violation", 1, [](Report_Log_Read_Write& w) {
                     EXPECT_EQ(w.WriteVirusLog("bob", "https", "evil.example", 0, "/x/payload.exe", nullptr,
                                               "payload.exe", "quarantined", "realtime", "av", "rule <1>", 17, nullptr,
                                               "Malware & Co", "u9", 1), 0); },
                   "bob\tDATE\thttps\thttps://evil.example/x/payload.exe\tvirus\tpayload.exe\tpayload.exe\tquarantined\t"
                   "realtime\tav\trule &lt;1&gt;\t17\tUnknown\tMalware &amp; Co\tu9\t1\n"},
        RecordCase{"Blocking", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteBlockingLog("carol", "http", "ads.example", 0, "banner.gif", "url filter", "policy", "Ads",
                                        5, "staff", "Advertising", "u1", 0); },
                   "carol\tDATE\thttp\thttp://ads.example/banner.gif\t\tbanner.gif\t\t\turl filter\tpolicy\tAds\t5\t"
                   "staff\tAdvertising\tu1\t0\n"},
        RecordCase{"BlockingWithAccessInfo", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteBlockingLogWithAccessInfo(
                         "d", "http", "a<b/c", 0, "/p", "s", "b", "r", 1, "g", "c", "u",
                         report_access_info{5000000000LL, "text/html", "10.0.0.2", "1.2.3.4", "POST", 7, -8, 9}); },
                   "d\tDATE\thttp\thttp://a&lt;b/c/p\t\tp\t\t\ts\tb\tr\t1\tg\tc\tu\t5000000000\ttext/html\t10.0.0.2\t"
                   "1.2.3.4\ta&lt;b\tPOST\t7\t-8\t9\n"},
        RecordCase{"Bot", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteBotDetectionLog(bot_log_entry{"eve", "http", "c2.example", 0, "/beacon", "Botnet.X", "block",
                                                          "bot scan", "bots", "lab", "u5", 1}); },
                   "eve\tDATE\thttp\thttp://c2.example/beacon\tbot\t\tBotnet.X\tblock\tbot scan\t\tbots\t0\tlab\t"
                   "bot detection\tu5\t1\n"},
        RecordCase{"Dlp", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteDLPLog("frank", "https", "drop.example", 443, "/upload", "card number", "cards.xlsx",
                                   "cards.xlsx", "block", "dlp", "PCI", "fin", "u6", 0); },
                   "frank\tDATE\thttps\thttps://drop.example:443/upload\tcard number\tcards.xlsx\tcards.xlsx\tblock\t"
                   "dlp\t\tPCI\t0\tfin\tdlp filter\tu6\t0\n"},
        RecordCase{"VirusWithAccessInfo", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteVirusLogWithAccessInfo("u", "http", "v.example", 0, "/", "Spy", "e", "a", "s", "b", "r", 4,
                                                   "g", "c", "id",
                                                   report_access_info{12, "t1", "t2", "t3", "t5", 1, 2, 3}); },
                   "u\tDATE\thttp\thttp://v.example/\tSpy\t\te\ta\ts\tb\tr\t4\tg\tc\tid\t"
                   "12\tt1\tt2\tt3\tv.example\tt5\t1\t2\t3\n"},
        RecordCase{"BotWithAccessInfo", "violation", 1, [](Report_Log_Read_Write& w) {
                     bot_log_entry bot{};
                     bot.host = "b.example/x";
                     w.WriteBotDetectionLogWithAccessInfo(bot,
                                                          report_access_info{12, "t1", "t2", "t3", "t5", 1, 2, 3}); },
                   "Unknown\tDATE\t\t://b.example/x/\tbot\t\t\t\t\t\t\t0\tUnknown\tbot detection\t\t"
                   "12\tt1\tt2\tt3\tb.example\tt5\t1\t2\t3\n"},
        RecordCase{"DlpWithAccessInfo", "violation", 1, [](Report_Log_Read_Write& w) {
                     w.WriteDLPLogWithAccessInfo("u", "http", "d.example", 0, "/", "m", "f", "e", "a", "s", "r", "g", "id",
                                                 report_access_info{12, "t1", "t2", "t3", "t5", 1, 2, 3}); },
                   "u\tDATE\thttp\thttp://d.example/\tm\tf\te\ta\ts\t\tr\t0\tg\tdlp filter\tid\t"
                   "12\tt1\tt2\tt3\td.example\tt5\t1\t2\t3\n"},
        RecordCase{"ContactAlert", "rkdx", 1, [](Report_Log_Read_Write& w) {
                     w.WriteRkdxLog("gina", "dns", "cb.example/x", 0, "/q", "laptop-3", "Callback", "", "10.1.1.1",
                                    "6.6.6.6", 53, 2, 4, "u7", 1); },
                   "gina\tDATE\tdns\tdns://cb.example/x/q\tcb.example\tlaptop-3\tCallback\tUnknown\t10.1.1.1\t6.6.6.6\t"
                   "53\t2\t4\tu7\t1\n"},
        RecordCase{"Cleanup", "cleanup", 2, [](Report_Log_Read_Write& w) {
                     w.WriteKLSCleanUpLog(kls_cleanuplog_entry{"u8", nullptr, "trojan.exe", "file", "pe", "DELETE"}); },
                   "u8\tUnknown\tDATE\ttrojan.exe\tfile\tpe\tDELETE\n"},
        RecordCase{"SystemEventKeepsTheLowFourBitsOfTheLevel", "systemevent", 1, [](Report_Log_Read_Write& w) {
                     w.WriteSystemEventLog(18, "gw1", "proxy", "started"); },
                   "gw1\tDATE\t2\tproxy\tstarted\n"}),
    [](const ::testing::TestParamInfo<RecordCase>& param) { return std::string(param.param.name); });

TEST_F(ReportWriterTest, ApplicationRecord) {
  time_t when = 1700000000;
  writer_.WriteAppLog(nullptr, "10.0.0.3", "Skype", -1, 2, 4000000000u, 4, 1LL << 40, -2, when, "rule");
  EXPECT_EQ(OnlyLine("app", 1), "Unknown\tDATE\t10.0.0.3\tSkype\t-1\t2\t4000000000\t4\t1099511627776\t-2\t" +
                                    Report_Log_Read_Write::getDate(when) + "\trule\n");
}

TEST_F(ReportWriterTest, DashboardRecordIsWrittenAtOnce) {
  EXPECT_EQ(writer_.WriteAppArmDashboardLog(3000000000u, -5, 18446744073709551615ULL), 1);
  std::string content = ReadFamily(Path("/etc/kvelo/log"), "report_log.apparmdashboard.");
  std::vector<std::string> fields = SplitFields(content);
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_TRUE(std::regex_match(fields[0], kDatePattern));
  EXPECT_EQ(fields[1] + "\t" + fields[2] + "\t" + fields[3], "-1294967296\t-5\t18446744073709551615\n");
}

TEST_F(ReportWriterTest, LineReachingTheBufferSizeIsDropped) {
  std::string code(2048, 'x');
  EXPECT_EQ(writer_.WriteKLSCleanUpLog(kls_cleanuplog_entry{nullptr, nullptr, nullptr, nullptr, nullptr, code.c_str()}),
            -1);
  EXPECT_TRUE(Lines("cleanup", -1).empty());
  // The widths bound an access line to 6124 bytes and a line feed, below its 6144-byte buffer.
  std::string wide(2000, 'w');
  std::string path = "/" + wide;
  const char* w = wide.c_str();
  EXPECT_EQ(writer_.WriteAccessLog(w, w, w, 0, path.c_str(), LLONG_MIN, w, w, w, w, w, w, INT_MIN, INT_MIN,
                                   INT_MIN, w, w),
            0);
  std::vector<std::string> lines = Lines("access", -1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), 6124u);
  // A virus line can reach 5162 bytes: over its 5000-byte buffer, it is lost.
  EXPECT_EQ(writer_.WriteVirusLog(w, w, w, 0, path.c_str(), w, w, w, w, w, w, INT_MIN, w, w, w, INT_MIN), -1);
  EXPECT_TRUE(Lines("violation", -1).empty());
}

TEST_F(ReportWriterTest, ConfigurationPlacesTheFiles) {
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                       "[Common]\nreport_logdir = /var/bexo/reports\nreport_log = rpt\n"
                       "report_log_rollover_bytes = 4096\n");
  EXPECT_EQ(Report_Log_Read_Write::RefreshConfig(), 1);
  EXPECT_EQ(LogQueue::s_rolloverBytes, 4096);
  writer_.WriteSystemEventLog(1, "s", "src", "d");
  EXPECT_EQ(Report_Log_Read_Write::FlushLog(), 0);
  EXPECT_EQ(bexo_test::ListFiles(Path("/var/bexo/reports"), "rpt.systemevent.").size(), 1u);

  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nreport_log_rollover_bytes = 0\n");
  Report_Log_Read_Write::RefreshConfig();
  EXPECT_EQ(LogQueue::s_rolloverBytes, 4096) << "0 keeps the current threshold";
}

struct TextCase {
  const char* name;
  std::string (*function)(const char*);
  std::string input;
  std::string expected;
};
void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name; }

class FieldHelperTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(FieldHelperTest, Transforms) {
  EXPECT_EQ(GetParam().function(GetParam().input.c_str()), GetParam().expected);
}

std::string Path(const char* text) { return Report_Log_Read_Write::getPath(text); }
std::string Domain(const char* text) { return Report_Log_Read_Write::getDomain(text); }
std::string Escape(const char* text) { return Report_Log_Read_Write::descriptify(text); }
std::string Cut(const char* text) { return Report_Log_Read_Write::cutInvalidUTF8(text); }
std::string Strip(const char* text) {
  std::string out;
  Descriptify(text, out, true);
  return out;
}
std::string Scrubbed(const char* text) { return BEXOScrubbedString(text).str(); }
std::string HttpFile(const char* text) { return Report_Log_Read_Write::getFilename(text, "http"); }
std::string FtpFile(const char* text) { return Report_Log_Read_Write::getFilename(text, "Ftp"); }

INSTANTIATE_TEST_SUITE_P(
    Cases, FieldHelperTest,
    ::testing::Values(
        TextCase{"EscapeKeepsEntities", Escape, "a<b&amp;c", "a&lt;b&amp;c"},
        TextCase{"EscapeBareAmpersandAndCarriageReturn", Escape, "x & y\r\n>", "x &amp; y\n&gt;"},
        TextCase{"EscapeKeepsDecimalReferences", Escape, "&#60;&#6x&lt;&gt;&a", "&#60;&amp;#6x&lt;&gt;&amp;a"},
        TextCase{"EscapeAmpersandAtTheEnd", Escape, "a&am", "a&amp;am"},
        TextCase{"StripDropsBracketsAndEncodedBrackets", Strip, "a<b>%3cx%3E&y%3d&#60;", "abxy%3d#60;"},
        TextCase{"StripKeepsKnownEntities", Strip, "&lt;&gt;\r&amp;", "&lt;&gt;&amp;"},
        TextCase{"PathCutAtQuery", Path, "/a<b?c=<d>", "/a&lt;b"},
        TextCase{"PathEmptyBeforeQuery", Path, "?x=1", "/"},
        TextCase{"PathEmpty", Path, "", "/"},
        TextCase{"DomainBeforeLastSlash", Domain, "host/a/b", "host/a"},
        TextCase{"DomainWithoutSlash", Domain, "host", "host"},
        TextCase{"FileAfterLastSlash", HttpFile, "/a/b.txt", "b.txt"},
        TextCase{"FileOfDirectoryWithDot", HttpFile, "/a.b/", "/a.b/"},
        TextCase{"FileOfDirectoryWithoutDot", HttpFile, "/a/", ""},
        TextCase{"FileOfFtpDirectory", FtpFile, "/pub/", "/pub/"},
        TextCase{"CutShortTextUnchanged", Cut, std::string(1021, 'a') + "\\", std::string(1021, 'a') + "\\"},
        TextCase{"CutTextOfTheLimitLength", Cut, std::string(1022, 'a') + "\\", std::string(1022, 'a')},
        TextCase{"CutAtLimitDropsTrailingBackslashes", Cut, std::string(1020, 'a') + "\\\\\\", std::string(1020, 'a')},
        TextCase{"CutBeforeSplitCharacter", Cut, std::string(1021, 'a') + "\xe2\x82\xac" + "zz",
                 std::string(1021, 'a')},
        TextCase{"CutAfterWholeCharacter", Cut, std::string(1020, 'a') + "\xe2\x82\xac" + "zz",
                 std::string(1020, 'a') + "\xe2\x82\xac"},
        TextCase{"ScrubTabsAndLineFeeds", Scrubbed, "a\tb\nc", "a b c"},
        TextCase{"ScrubKeepsValidUtf8", Scrubbed, "\xe6\x97\xa5\xe6\x9c\xac", "\xe6\x97\xa5\xe6\x9c\xac"},
        TextCase{"ScrubEncodesEveryHighByteOfInvalidText", Scrubbed, "\xe6\x97\xa5\xc3", "%E6%97%A5%C3"}),
    [](const ::testing::TestParamInfo<TextCase>& param) { return std::string(param.param.name); });

TEST(FieldHelperTest, Defaults) {
  EXPECT_STREQ(Report_Log_Read_Write::getUser(nullptr), "Unknown");
  EXPECT_STREQ(Report_Log_Read_Write::getGroup(""), "Unknown");
  EXPECT_STREQ(Report_Log_Read_Write::getHost("h"), "h");
  EXPECT_STREQ(Report_Log_Read_Write::getMaliciousEntity(nullptr), "virus");
  EXPECT_EQ(BEXOScrubbedString(nullptr).str(), "");
  EXPECT_EQ(Report_Log_Read_Write::getUrl("http", "h", 0, nullptr), "http://h");
  EXPECT_EQ(Report_Log_Read_Write::getUrl("http", "::1", 8080, "/x"), "http://[::1]:8080/x");
  EXPECT_EQ(Report_Log_Read_Write::getUrl("http", "h", 0, "x").size(), 10u);
  std::string long_path(3000, 'p');
  EXPECT_EQ(Report_Log_Read_Write::getUrl("http", "h", 0, long_path.c_str()).size(), 1023u);
}

}  // namespace
