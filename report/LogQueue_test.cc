#include "LogQueue.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <string>
#include <vector>

#include "UxLog.h"
#include "report_files.h"
#include "temp_root.h"

namespace {

using bexo_test::ListFiles;
using bexo_test::ReadFile;

class LogQueueTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = Path("/etc/kvelo/log");
    mkdir(dir_.c_str(), 0775);
    queue_.SetReportFilePath(dir_ + "/report_log.access");
    LogQueue::s_rolloverBytes = 104857600;
    UxLog::setSink([this](const UxLogRecord& record) { messages_.push_back(record.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }

  std::string Today() {
    std::string suffix;
    return queue_.GetLogFileName(suffix);
  }
  int Push(const std::string& line) { return queue_.Push(line.data(), static_cast<int>(line.size())); }

  std::string dir_;
  LogQueue queue_{s_AccessLogFileMutex};
  std::vector<std::string> messages_;
};

TEST_F(LogQueueTest, AnchorIsLockFree) {
  EXPECT_TRUE(LogQueue::AnchorIsLockFree());
  EXPECT_TRUE(std::atomic<uint64_t>{0}.is_lock_free());
}

TEST_F(LogQueueTest, HundredthPushWritesTheBatchNewestFirst) {
  std::string expected;
  for (int i = 1; i <= 99; ++i) {
    ASSERT_EQ(Push("line " + std::to_string(i) + "\n"), 0);
    expected = "line " + std::to_string(i) + "\n" + expected;
  }
  EXPECT_TRUE(ListFiles(dir_, "report_log.access").empty()) << "pushes 1-99 write nothing";
  EXPECT_EQ(Push("line 100\n"), 0);
  expected = "line 100\n" + expected;
  EXPECT_EQ(ReadFile(Today()), expected);
  std::string pending;
  for (int i = 0; i < 99; ++i) {  // the count starts again: these stay pending
    Push(std::to_string(i) + "\n");
    pending = std::to_string(i) + "\n" + pending;
  }
  EXPECT_EQ(ReadFile(Today()), expected);
  EXPECT_EQ(queue_.FlushLog(), 0);  // a flush writes newest first too
  EXPECT_EQ(ReadFile(Today()), expected + pending);
  EXPECT_EQ(queue_.GetAnchorAndRelease().head, nullptr);
}

TEST_F(LogQueueTest, FlushOfNothingOrEmptyLinesTouchesNoFile) {
  EXPECT_EQ(queue_.FlushLog(), 0);
  Push("");
  EXPECT_EQ(queue_.FlushLog(), 0);
  EXPECT_TRUE(ListFiles(dir_, "report_log").empty());
}

// Also checks the names: "<path>.YYYYMMDD" (local date), rolled "<name>_NNNNNNNNN".
TEST_F(LogQueueTest, FileReachingTheThresholdExactlyIsRolledOver) {
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char date[16];
  strftime(date, sizeof date, "%Y%m%d", &local);
  EXPECT_EQ(Today(), dir_ + "/report_log.access." + date);
  LogQueue::s_rolloverBytes = 10;
  Push("123456789\n");  // exactly 10 bytes
  ASSERT_EQ(queue_.FlushLog(), 0);
  std::vector<std::string> files = ListFiles(dir_, "report_log.access");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(std::regex_match(files[0], std::regex(std::string("report_log\\.access\\.") + date + "_\\d{9}")))
      << files[0];
  EXPECT_EQ(ReadFile(dir_ + "/" + files[0]), "123456789\n");
  Push("12345678\n");  // 9 bytes: stays current
  ASSERT_EQ(queue_.FlushLog(), 0);
  EXPECT_EQ(ListFiles(dir_, "report_log.access").size(), 2u);
  EXPECT_EQ(ReadFile(Today()), "12345678\n");
  struct stat st;
  ASSERT_EQ(stat(Today().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0660u) << "group-writable";
}

// Local time is moved (through TZ) to just before midnight; appends on either
// side of it land in files with different dates.
TEST_F(LogQueueTest, AppendsAcrossMidnightGoToTwoFiles) {
  const char* old_tz = getenv("TZ");
  std::string saved = old_tz ? old_tz : "";
  long offset = (86397 - static_cast<long>(time(nullptr) % 86400) + 86400) % 86400;  // local 23:59:57
  if (offset > 43200) offset -= 86400;
  char tz[64];
  long magnitude = labs(offset);
  snprintf(tz, sizeof tz, "TST%c%02ld:%02ld:%02ld", offset >= 0 ? '-' : '+', magnitude / 3600,
           magnitude / 60 % 60, magnitude % 60);
  setenv("TZ", tz, 1);
  tzset();
  Push("before\n");
  ASSERT_EQ(queue_.FlushLog(), 0);
  sleep(4);
  Push("after\n");
  ASSERT_EQ(queue_.FlushLog(), 0);
  if (old_tz) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
  tzset();
  std::vector<std::string> files = ListFiles(dir_, "report_log.access");
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(ReadFile(dir_ + "/" + files[0]), "before\n");
  EXPECT_EQ(ReadFile(dir_ + "/" + files[1]), "after\n");
}

TEST_F(LogQueueTest, MissingDirectoryReportsOpenAndWriteFailures) {
  queue_.SetReportFilePath(Path("/no/such/dir/report_log.access"));
  Push("lost\n");
  EXPECT_EQ(queue_.FlushLog(), -1);
  ASSERT_EQ(messages_.size(), 2u);
  EXPECT_TRUE(std::regex_match(messages_[0], std::regex(R"(Failed to open log file .*/no/such/dir/report_log\.access\.\d{8} with \[2:No such file or directory\])")))
      << messages_[0];
  EXPECT_EQ(messages_[1], "Report log write failed with [9:Bad file descriptor]");
}

// Each family's lock and its lock file; the first family named in a file
// name wins, an unknown one gets the access lock and a message.
TEST_F(LogQueueTest, FileNamePicksTheFamilyLock) {
  const struct {
    const char* file_name;
    BEXONamedMutex* mutex;
    const char* lock_file;
  } cases[] = {
      {"report_log.access.20240131", &s_AccessLogFileMutex, "_BEXO_RPT_LOG_LOCK_ACCESS"},
      {"r.systemevent.20240131_1", &s_SystemEventLogFileMutex, "_BEXO_RPT_LOG_LOCK_SYSTEMEVENT"},
      {"r.violation.20240131", &s_ViolationLogFileMutex, "_BEXO_RPT_LOG_LOCK_VIOLATION"},
      {"r.performance.20240131", &s_PerformanceLogFileMutex, "_BEXO_RPT_LOG_LOCK_PERFORMANCE"},
      {"r.cleanup.20240131", &s_CleanupLogFileMutex, "_BEXO_RPT_LOG_LOCK_CLEANUP"},
      {"r.app.20240131", &s_AppLogFileMutex, "_BEXO_RPT_LOG_LOCK_APPLOG"},
      {"r.apparmdashboard.20240131", &s_AppArmdashboardLogFileMutex, "_BEXO_RPT_LOG_LOCK_APPARMDASHBOARLOG"},
      {"r.rkdx.20240131", &s_RkdxLogFileMutex, "_BEXO_RPT_LOG_LOCK_RKDXLOG"},
      {"r.polevtkrau.20240131", &s_PolevtLogFileMutex, "_BEXO_RPT_LOG_LOCK_POLEVT"},
      {"x.app.access.1", &s_AccessLogFileMutex, nullptr},
      {"x.cleanup.app.1", &s_CleanupLogFileMutex, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file_name);
    EXPECT_EQ(&GetReportFileMutex(c.file_name), c.mutex);
    if (!c.lock_file) continue;
    ASSERT_EQ(c.mutex->lock(), 0);
    c.mutex->unlock();
    EXPECT_TRUE(bexo_test::FileExists(Path(std::string("/etc/kvelo/") + c.lock_file)));
  }
  EXPECT_TRUE(messages_.empty());
  EXPECT_EQ(&GetReportFileMutex("report_log.unknown.20240131"), &s_AccessLogFileMutex);
  EXPECT_EQ(messages_, std::vector<std::string>{"Unexpected import log file name: report_log.unknown.20240131"});
}

}  // namespace
