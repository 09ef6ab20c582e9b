// The dashboard log handle: where its records go in each output mode, and a
// handle without implementation.
#include "ArmDashboardLog.h"

#include <sys/stat.h>

#include <regex>
#include <string>

#include "Report_Log_Read_Write.h"
#include "eventlog/ArmDashboardLogImpl.h"
#include "eventlog/eventlog_test_support.h"
#include "temp_root.h"

namespace BEXO {
namespace AppControl {

// Reaches the handle's implementation pointer, as a failed allocation would leave it.
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
using bexo_eventlog_test::DatedFile;
using bexo_eventlog_test::FilesStartingWith;
using bexo_test::FileExists;
using bexo_test::ReadFile;
using bexo_test::TempRootTest;

constexpr char kPrefix[] = "/var/bexo/log/armdashboard";

// Today's report file of `kind` in `dir`, or "" when there is none.
std::string ReportFile(const std::string& dir, const std::string& kind) {
  auto files = FilesStartingWith(dir, "report_log." + kind + ".");
  return files.empty() ? "" : files.back();
}

class ArmDashboardLogTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    mkdir(Path("/var/bexo/log").c_str(), 0755);
  }

  // The real path of today's first text file of `prefix`.
  std::string TextFile(const std::string& prefix) const { return DatedFile(Path(prefix), 1); }
};

TEST_F(ArmDashboardLogTest, RecordsGoToTheReportLogExceptInMode2) {
  struct Case {
    int mode;
    bool recorded;    // the write succeeds and the row is in the report file
    bool history;     // Flush writes other pending report lines
    bool text_file;   // Flush makes today's (empty) text file
  };
  const Case cases[] = {
      {0, true, true, false},
      {1, true, true, true},
      {2, false, false, true},
  };
  const std::string report_dir = Path("/etc/kvelo/log");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    const std::string prefix = std::string(kPrefix) + std::to_string(c.mode);
    ArmDashboardLog log;
    ASSERT_EQ(log.Initialize(0, prefix.c_str(), c.mode, "en", 1 << 30), 0);
    Report_Log_Read_Write other;
    const std::string cleanup_line_user = "user" + std::to_string(c.mode);
    kls_cleanuplog_entry entry{};
    entry.uid = cleanup_line_user.c_str();
    ASSERT_EQ(other.WriteKLSCleanUpLog(entry), 0);  // pending until a flush

    std::string before = ReadFile(ReportFile(report_dir, "apparmdashboard"));
    EXPECT_EQ(log.WriteArmDashboradLog(40 + c.mode, -5, -1), c.recorded);
    std::string added = ReadFile(ReportFile(report_dir, "apparmdashboard")).substr(before.size());
    if (c.recorded) {
      const std::regex row("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[+-]\\d{4}\t" +
                           std::to_string(40 + c.mode) + "\t-5\t18446744073709551615\n");
      EXPECT_TRUE(std::regex_match(added, row)) << added;
    } else {
      EXPECT_EQ(added, "");
    }

    EXPECT_EQ(log.Flush(), 1);
    std::string cleanup = ReadFile(ReportFile(report_dir, "cleanup"));
    EXPECT_EQ(cleanup.find(cleanup_line_user + "\t") != std::string::npos, c.history);
    EXPECT_EQ(FileExists(TextFile(prefix)), c.text_file);
    EXPECT_EQ(ReadFile(TextFile(prefix)), "");
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
  EXPECT_EQ(ReportFile(Path("/etc/kvelo/log"), "apparmdashboard"), "");
}

}  // namespace
