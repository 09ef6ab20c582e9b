// The dashboard log handle: where its records go in each output mode, and a
// handle without implementation.
#include "ArmDashboardLog.h"

#include <sys/stat.h>

#include <regex>
#include <string>

#include "Report_Log_Read_Write.h"
#include "eventlog/ArmDashboardLogImpl.h"
#include "report_files.h"
#include "temp_root.h"

namespace BEXO {
namespace AppControl {

// Drops the handle's implementation, as a failed allocation would leave it.
class ArmDashboardLogTestPeer {
 public:
  static void DropImplementation(ArmDashboardLog& log) {
    delete log.impl_;
    log.impl_ = nullptr;
  }
};

}  // namespace AppControl
}  // namespace BEXO

namespace {

using BEXO::AppControl::ArmDashboardLog;
using bexo_test::FileExists;
using bexo_test::ReadFile;

constexpr char kPrefix[] = "/var/bexo/log/armdashboard";

class ArmDashboardLogTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    mkdir(Path("/var/bexo/log").c_str(), 0755);
  }
  std::string Family(const std::string& kind) {
    return bexo_test::ReadFamily(Path("/etc/kvelo/log"), "report_log." + kind + ".");
  }
};

// Mode 0 and 1 record the row and flush pending report lines; 1 and 2 make
// today's (empty) text file.
TEST_F(ArmDashboardLogTest, RecordsGoToTheReportLogExceptInMode2) {
  const struct {
    int mode;
    bool recorded, text_file;
  } cases[] = {{0, true, false}, {1, true, true}, {2, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    const std::string prefix = kPrefix + std::to_string(c.mode);
    ArmDashboardLog log;
    ASSERT_EQ(log.Initialize(0, prefix.c_str(), c.mode, "en", 1 << 30), 0);
    const std::string user = "user" + std::to_string(c.mode);
    Report_Log_Read_Write other;
    ASSERT_EQ(other.WriteKLSCleanUpLog(kls_cleanuplog_entry{user.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr}),
              0);  // pending until a flush
    std::string before = Family("apparmdashboard");
    EXPECT_EQ(log.WriteArmDashboradLog(40 + c.mode, -5, -1), c.recorded);
    std::string added = Family("apparmdashboard").substr(before.size());
    const std::regex row("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[+-]\\d{4}\t" + std::to_string(40 + c.mode) +
                         "\t-5\t18446744073709551615\n");
    EXPECT_TRUE(c.recorded ? std::regex_match(added, row) : added.empty()) << added;
    EXPECT_EQ(log.Flush(), 1);
    EXPECT_EQ(Family("cleanup").find(user + "\t") != std::string::npos, c.recorded);
    const std::string text_file = bexo_test::DatedFile(Path(prefix), 1);
    EXPECT_EQ(FileExists(text_file), c.text_file);
    EXPECT_EQ(ReadFile(text_file), "");
    EXPECT_TRUE(FileExists(Path("/var/bexo/ARMDASHBOARDLOG.LOCK")));
  }
}

TEST_F(ArmDashboardLogTest, RefreshSwitchesRecordingOnAndOff) {
  ArmDashboardLog log;
  ASSERT_EQ(log.Initialize(0, kPrefix, 2, "", 1 << 30), 0);
  EXPECT_FALSE(log.WriteArmDashboradLog(1, 2, 3));
  ASSERT_EQ(log.Refresh(kPrefix, 0, nullptr), 0);
  EXPECT_TRUE(log.WriteArmDashboradLog(1, 2, 3));
  ASSERT_EQ(log.Refresh(kPrefix, 9, "en"), 0);  // out of range: as mode 0
  EXPECT_TRUE(log.WriteArmDashboradLog(1, 2, 3));
}

TEST_F(ArmDashboardLogTest, HandleWithoutImplementationAnswersFailure) {
  ArmDashboardLog log;
  BEXO::AppControl::ArmDashboardLogTestPeer::DropImplementation(log);
  EXPECT_EQ(log.Initialize(0, kPrefix, 1, "en", 1 << 30), -1);
  EXPECT_EQ(log.Refresh(kPrefix, 1, "en"), -1);
  EXPECT_FALSE(log.WriteArmDashboradLog(1, 2, 3));
  EXPECT_EQ(log.Flush(), 0);
  EXPECT_EQ(Family("apparmdashboard"), "");
}

}  // namespace
