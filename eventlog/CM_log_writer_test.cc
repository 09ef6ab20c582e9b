// CM_log_writer: the entries of the five write operations as jq reads them
// from the log files (kind, level, attribute names, types, values, order),
// the date texts, release_handle's switch to the log "CM", and a missing
// configuration.
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "CM_log_writer_and_reader.h"
#include "slog_test_util.h"
#include "temp_root.h"
#include "wall_clock.h"

namespace {

using bexo_test::Jq;
using bexo_test::LogFiles;

constexpr char kDir[] = "/var/bexo/cm";
// Attributes as [name, type, value], the date texts shown as "D".
constexpr char kFilter[] =
    "[.kind, .id, .level, (.attrs | map([.name, .type, "
    "(if (.name | test(\"datetime\")) then \"D\" else .value end)]))]";

class CMLogWriterTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                         "[Common]\nlang=ja\nCMLogPath=/var/bexo/cm\n");
  }
  void TearDown() override {
    bexo_test::UseSystemClock();
    TempRootTest::TearDown();
  }
  std::string Entries(const std::string& name) { return Jq(kFilter, LogFiles(Path(kDir), name)); }
};

TEST_F(CMLogWriterTest, EachWriteRecordsItsAttributesTypesAndOrder) {
  const struct {
    const char* name;
    std::function<void(CM_log_writer&)> write;
    const char* expected;
  } cases[] = {
      {"virus",
       [](CM_log_writer& w) {
         w.write_virus_log("EICAR", "e.com", "http://x/e.com", "10.0.0.1", "alice", "a@x", "",
                           "exe", 300, 1, 2, -1);
       },
       R"([3,3,9,[["virus_name","string","EICAR"],["filename","string","e.com"],)"
       R"(["download_source","string","http://x/e.com"],["client_ip","string","10.0.0.1"],)"
       R"(["login_user","string","alice"],["user_mail","string","a@x"],["first_action","u8",44],)"
       R"(["first_action_result","u8",1],["second_action","u8",2],)"
       R"(["second_action_result","u8",255],["minortype","string","exe"]]])"},
      {"url",
       [](CM_log_writer& w) {
         w.write_url_blocking_log("http://bad/", "10.0.0.2", "bob", "b@x", "f", 3, "rule", "opp");
       },
       R"([9,9,9,[["object_name_url","string","http://bad/"],["client_ip","string","10.0.0.2"],)"
       R"(["login_user","string","bob"],["user_mail","string","b@x"],["filename","string","f"],)"
       R"(["blocking_type","u8",3],["blocking_rule","string","rule"],["OPP_id","string","opp"]]])"},
      {"wsv_minimal",
       [](CM_log_writer& w) {
         w.write_web_security_violation_log("http://u/", "ip", "user", "mail", "file", 7, "rule",
                                            "opp", -1, -1, nullptr, -1, -1, nullptr, -1, 0, -1, -1);
       },
       R"([24,24,9,[["local_datetime","string","D"],["UTC_datetime","string","D"],)"
       R"(["full_path_url","string","http://u/"],["client_ip","string","ip"],)"
       R"(["login_user","string","user"],["user_mail","string","mail"],["filename","string","file"],)"
       R"(["blocking_type","u8",7],["detection_rule","string","rule"],["OPP_id","string","opp"],)"
       R"(["is_rkdx_detection","u8",0]]])"},
      {"wsv_full",
       [](CM_log_writer& w) {
         w.write_web_security_violation_log("http://u/", "ip", "user", "mail", "file", 7, "rule",
                                            "opp", 1, 2, "10,20", 3, 300, "pol", 4, 1, 5, 6);
       },
       R"([24,24,9,[["local_datetime","string","D"],["UTC_datetime","string","D"],)"
       R"(["full_path_url","string","http://u/"],["client_ip","string","ip"],)"
       R"(["login_user","string","user"],["user_mail","string","mail"],["filename","string","file"],)"
       R"(["blocking_type","u8",7],["detection_rule","string","rule"],["OPP_id","string","opp"],)"
       R"(["user_agent_type","u8",1],["detection_type","u8",2],["category_id_list","string","10,20"],)"
       R"(["reputation_level","u8",3],["reputation_score","u8",44],["policy_name","string","pol"],)"
       R"(["action","u8",4],["is_rkdx_detection","u8",1],["rkdx_detection_source","u8",5],)"
       R"(["rkdx_risk_level","u8",6]]])"},
      {"dlp_http",
       [](CM_log_writer& w) {
         w.write_dlp_log("ip", "carol", "corp", "c@x", "http://o/", "pol", "f.doc", "tpl", "HTTP", 1,
                         "4111-1111");
       },
       R"([67108930,67108930,9,[["local_datetime","string","D"],["UTC_datetime","string","D"],)"
       R"(["client_ip","string","ip"],["user_name","string","carol"],["user_domain","string","corp"],)"
       R"(["user_mail","string","c@x"],["object_name_url","string","http://o/"],)"
       R"(["policy_name","string","pol"],["filename","string","f.doc"],["templates","string","tpl"],)"
       R"(["blocking_type","u8",5],["action","u8",0],["matched_content","string","4111-1111"]]])"},
      {"dlp_ftp",
       [](CM_log_writer& w) {
         w.write_dlp_log("ip", "carol", "corp", "c@x", "ftp://o/", "pol", "f", "tpl", "ftp", 0, "m");
       },
       R"([67108930,67108930,9,[["local_datetime","string","D"],["UTC_datetime","string","D"],)"
       R"(["client_ip","string","ip"],["user_name","string","carol"],["user_domain","string","corp"],)"
       R"(["user_mail","string","c@x"],["object_name_url","string","ftp://o/"],)"
       R"(["policy_name","string","pol"],["filename","string","f"],["templates","string","tpl"],)"
       R"(["blocking_type","u8",6],["action","u8",3],["matched_content","string","m"]]])"},
      {"event",
       [](CM_log_writer& w) { w.write_event_log(1201, "disk full", -1, -5); },
       R"([0,1201,5,[["description","string","disk full"],["COMPONENT_CODE","u32",4294967295],)"
       R"(["REASON_CODE","s32",-5]]])"},
      {"event_null", [](CM_log_writer& w) { w.write_event_log(1202, nullptr, 1, 2); },
       R"([0,1202,5,[]])"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CM_log_writer writer(nullptr, nullptr, c.name);
    c.write(writer);
    EXPECT_EQ(Entries(c.name), std::string(c.expected) + "\n");
  }
  struct stat info;
  ASSERT_EQ(stat(Path("/var/bexo/cm/virus.log").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0660u);
}

TEST_F(CMLogWriterTest, DateTextsComeFromOneClockReading) {
  bexo_test::SetWallClockToNoon(2026, 3, 10);
  time_t now = bexo::WallClockNow().tv_sec;
  struct tm utc;
  gmtime_r(&now, &utc);
  char expected_utc[32];
  strftime(expected_utc, sizeof expected_utc, "%Y-%m-%d %H:%M:%S", &utc);
  CM_log_writer writer(nullptr, kDir, "dates");
  writer.write_dlp_log("ip", "u", "d", "m", "o", "p", "f", "t", "http", 1, "c");
  EXPECT_EQ(Jq("[.attrs[0].value, .attrs[1].value]", LogFiles(Path(kDir), "dates")),
            std::string("[\"2026-03-10 12:00:00\",\"") + expected_utc + "\"]\n");

  char local[20] = "unchanged", small[19] = "unchanged";
  const struct {
    char* local;
    int local_size;
    char* utc;
    int utc_size;
    bool ok;
  } cases[] = {{nullptr, 20, local, 20, false}, {local, 20, nullptr, 20, false},
               {small, 19, local, 20, false},   {local, 20, small, 19, false},
               {local, 20, local, 20, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(CM_log_writer::getDateTime(c.local, c.local_size, c.utc, c.utc_size), c.ok);
    EXPECT_STREQ(small, "unchanged");
  }
  EXPECT_STREQ(local, expected_utc);  // the last case wrote the UTC text last
}

TEST_F(CMLogWriterTest, ReleaseHandleMovesToTheLogNamedCM) {
  CM_log_writer writer(nullptr, nullptr, "first");
  writer.write_event_log(1, "before", 0, 0);
  writer.release_handle();
  writer.write_event_log(2, "after", 0, 0);
  EXPECT_EQ(Jq(".id", LogFiles(Path(kDir), "first")), "1\n");
  EXPECT_EQ(Jq(".id", LogFiles(Path(kDir), "CM")), "2\n");
}

TEST_F(CMLogWriterTest, BadInputOrMissingConfigurationWritesNothing) {
  CM_log_writer writer(nullptr, nullptr, "bad");
  testing::internal::CaptureStdout();
  writer.write_url_blocking_log("u", nullptr, "l", "m", "f", 1, "r", "o");  // a null fixed string
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ux_LOG_LogEntry: attribute client_ip has no value \n");
  EXPECT_EQ(Jq("length", LogFiles(Path(kDir), "bad")), "");

  unlink(Path("/etc/kvelo/morvane.ini").c_str());
  testing::internal::CaptureStdout();
  CM_log_writer unconfigured(nullptr, kDir, "none");
  unconfigured.write_event_log(1, "x", 0, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: could not read config file " + Path("/etc/kvelo/morvane.ini") + " \n");
  EXPECT_FALSE(bexo_test::FileExists(Path("/var/bexo/cm/none.log")));
}

}  // namespace
