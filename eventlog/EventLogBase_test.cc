// BEXOEventLogBase in one process: buffer sizes, output modes, dumps, file
// naming and rollover, failures and their messages, the localized timestamp.
#include "EventLogBase.h"

#include <limits.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "UxLog.h"
#include "report_files.h"
#include "temp_root.h"

namespace {

using bexo_test::FileExists;
using bexo_test::ListFiles;
using bexo_test::ReadFile;
using bexo_test::WriteFile;

constexpr char kLockPath[] = "/var/bexo/EVENTLOGTEST.LOCK";
constexpr char kPrefix[] = "/var/bexo/log/events";

class EventLogTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    mkdir(Path("/var/bexo/log").c_str(), 0755);
    UxLog::setSink([this](const UxLogRecord& r) { messages_.push_back(std::string(r.function) + "|" + r.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }

  // The real path of today's output file with `counter`.
  std::string OutputFile(int counter, const char* prefix = kPrefix) {
    return bexo_test::DatedFile(Path(prefix), counter);
  }
  bool Logged(const std::string& entry) const {
    return std::find(messages_.begin(), messages_.end(), entry) != messages_.end();
  }
  static void Init(BEXOEventLogBase& log, unsigned size = 0, int mode = 2, int max_size = 1 << 30,
                   const char* prefix = kPrefix) {
    ASSERT_EQ(log.Initialize(true, size, prefix, mode, "en", false, max_size), 0);
  }
  static int Write(BEXOEventLogBase& log, const std::string& line) {
    return log.WriteMemoryLog(line.data(), static_cast<unsigned>(line.size()));
  }

  std::vector<std::string> messages_;
};

TEST_F(EventLogTest, BufferSizeFollowsTheSizeRules) {
  const unsigned cases[][2] = {{0, 4194304},     {1, 65536},          {1000, 65536},
                               {65535, 65536},   {65536, 65536},      {200000, 200000},
                               {200001, 200001}, {134217729, 4194304}, {UINT_MAX, 4194304}};
  for (const auto& c : cases) {
    BEXOEventLogBase log(kLockPath, "test");
    Init(log, c[0]);
    EXPECT_EQ(log.GetBufferSize(), c[1]) << c[0];
  }
}

// The buffer takes 25-byte lines until the next would not fit in 200001 - 8
// bytes, then goes to the file in one dump.
TEST_F(EventLogTest, FullBufferIsDumpedBeforeTheNextLine) {
  BEXOEventLogBase log(kLockPath, "test");
  Init(log, 200001);
  std::string expected;
  for (int line = 0; expected.size() + 25 <= 200001 - 8; ++line) {
    char text[32];
    snprintf(text, sizeof text, "line %019d\n", line);
    ASSERT_EQ(Write(log, text), 1);
    expected += text;
  }
  EXPECT_FALSE(FileExists(OutputFile(1)));
  const std::string next = "the line that won't fit!\n";
  ASSERT_EQ(Write(log, next), 1);
  EXPECT_TRUE(ReadFile(OutputFile(1)) == expected);
  EXPECT_EQ(log.Flush(), 1);
  EXPECT_TRUE(ReadFile(OutputFile(1)) == expected + next);
}

// Mode 0: no text file; 1: both; 2: text file only, pending report lines stay.
TEST_F(EventLogTest, OutputModesDecideWhereLinesAndHistoryGo) {
  const struct {
    int mode, stored_mode;
    bool text_file, history;
  } cases[] = {{0, 0, false, true}, {1, 1, true, true}, {2, 2, true, false}, {7, 0, false, true}, {-1, 0, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    const std::string prefix = "/var/bexo/log/mode" + std::to_string(c.mode);
    for (const auto& old : ListFiles(Path("/etc/kvelo/log"), "report_log.")) {
      std::filesystem::remove(Path("/etc/kvelo/log/") + old);
    }
    BEXOEventLogBase log(kLockPath, "test");
    ASSERT_EQ(log.Initialize(true, 0, prefix.c_str(), c.mode, "en", true, 1 << 30), 0);
    EXPECT_EQ(log.GetOutputMode(), c.stored_mode);
    EXPECT_TRUE(log.GetFlag());
    Report_Log_Read_Write report;
    ASSERT_EQ(report.WritePerformanceLog("srv", "cpu", "42"), 0);  // waits for a batch of 100
    ASSERT_EQ(Write(log, "one line\n"), 1);
    EXPECT_EQ(log.Flush(), 1);
    EXPECT_EQ(log.Flush(), 1);  // the second finds the buffer empty
    const std::string file = OutputFile(1, prefix.c_str());
    EXPECT_EQ(FileExists(file), c.text_file);
    EXPECT_EQ(ReadFile(file), c.text_file ? "one line\n" : "");
    EXPECT_EQ(ListFiles(Path("/etc/kvelo/log"), "report_log.performance.").size(), c.history ? 1u : 0u);
  }
}

TEST_F(EventLogTest, RefreshChangesModeAndPrefixAtRunTime) {
  BEXOEventLogBase log(kLockPath, "test");
  Init(log, 0, 0);
  ASSERT_EQ(Write(log, "discarded\n"), 1);
  ASSERT_EQ(log.Refresh("/var/bexo/log/other", 2, nullptr, false), 0);
  ASSERT_EQ(Write(log, "kept\n"), 1);
  EXPECT_EQ(log.Flush(), 1);
  EXPECT_EQ(ReadFile(OutputFile(1, "/var/bexo/log/other")), "discarded\nkept\n");
  ASSERT_EQ(log.Refresh(kPrefix, 0, "de", false), 0);
  ASSERT_EQ(Write(log, "gone\n"), 1);
  EXPECT_EQ(log.Flush(), 1);
  EXPECT_FALSE(FileExists(OutputFile(1)));
  EXPECT_EQ(log.Refresh(nullptr, 2, "en", false), -1);
}

// A line longer than the buffer is dropped after the dump; null lines are
// refused, empty ones taken.
TEST_F(EventLogTest, OversizedNullAndEmptyLines) {
  BEXOEventLogBase log(kLockPath, "test");
  Init(log, 1000);
  EXPECT_EQ(log.WriteMemoryLog(nullptr, 5), 0);
  EXPECT_EQ(log.WriteMemoryLog("", 0), 1);
  EXPECT_EQ(log.WriteMemoryLog("abc", 0), 1);
  ASSERT_EQ(Write(log, "before\n"), 1);
  EXPECT_EQ(Write(log, std::string(65536, 'x')), 1);
  EXPECT_EQ(ReadFile(OutputFile(1)), "before\n");
  const std::string whole(65536 - 8, 'y');  // exactly the buffer's capacity
  EXPECT_EQ(Write(log, whole), 1);
  ASSERT_EQ(Write(log, "after\n"), 1);
  EXPECT_EQ(log.Flush(), 1);
  EXPECT_TRUE(ReadFile(OutputFile(1)) == "before\n" + whole + "after\n");
}

// Today's files that have reached the maximum size are passed over; a file
// below it is appended to even when the dump takes it past the maximum.
TEST_F(EventLogTest, FullFilesRollToTheNextCounter) {
  BEXOEventLogBase log(kLockPath, "test");
  WriteFile(OutputFile(1), std::string(100, 'o'));
  Init(log, 0, 2, 100);
  const std::string big(120, 'b');
  for (const std::string& line : {std::string("first\n"), big, std::string("third\n")}) {
    ASSERT_EQ(Write(log, line), 1);
    ASSERT_EQ(log.Flush(), 1);
  }
  EXPECT_EQ(ReadFile(OutputFile(1)), std::string(100, 'o'));
  EXPECT_EQ(ReadFile(OutputFile(2)), "first\n" + big);
  EXPECT_EQ(ReadFile(OutputFile(3)), "third\n");
  char name[256];
  log.GetOutputFileName(name, sizeof name);
  EXPECT_EQ(name, OutputFile(3));
}

TEST_F(EventLogTest, OutputFileNameIsBoundedByTheBuffer) {
  BEXOEventLogBase log(kLockPath, "test");
  Init(log, 0, 2, 1 << 30, "relative/events");
  char name[64];
  log.GetOutputFileName(name, sizeof name);
  EXPECT_EQ(std::string(name), bexo_test::DatedFile("relative/events", 1));
  log.GetOutputFileName(name, 10);  // at most 8 characters on the first try
  EXPECT_EQ(std::string(name), "relative");
  log.GetOutputFileName(name, 1);
  EXPECT_EQ(name[0], '\0');
  name[0] = '#';
  log.GetOutputFileName(name, 0);
  log.GetOutputFileName(nullptr, 10);
  EXPECT_EQ(name[0], '#');
}

TEST_F(EventLogTest, WithoutSharedMemoryLinesGoStraightToTheFile) {
  BEXOEventLogBase log(kLockPath, "test");
  ASSERT_EQ(log.Initialize(false, 0, kPrefix, 1, "en", false, 1 << 30), 0);
  EXPECT_EQ(log.GetBufferSize(), 0u);
  ASSERT_EQ(Write(log, "a\n"), 1);
  EXPECT_EQ(ReadFile(OutputFile(1)), "a\n");
}

TEST_F(EventLogTest, OutputFilesAreMadeWithUmask002) {
  BEXOEventLogBase log(kLockPath, "test");
  mode_t saved = umask(077);
  Init(log);
  ASSERT_EQ(Write(log, "x\n"), 1);
  ASSERT_EQ(log.Flush(), 1);
  FILE* stream = log.OpenOutputFileStream();
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  EXPECT_EQ(umask(saved), 077u);  // restored after every open
  struct stat st;
  ASSERT_EQ(stat(OutputFile(1).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST_F(EventLogTest, FailuresAreLoggedAndReported) {
  BEXOEventLogBase log(kLockPath, "test");
  EXPECT_EQ(log.Refresh(kPrefix, 2, "en", false), -1);
  EXPECT_TRUE(Logged("Refresh|ERROR: Dateformat or charset converter not allocated in event log"));
  EXPECT_EQ(log.Initialize(true, 0, nullptr, 2, "en", false, 100), -1);
  EXPECT_EQ(log.Initialize(true, 0, kPrefix, 2, nullptr, false, 100), -1);
  ASSERT_EQ(messages_.size(), 3u);
  EXPECT_EQ(messages_[1].rfind("Initialize|ERROR: Failed to init test log because of bad file "
                               "prefix or language specifier [0,", 0), 0u)
      << messages_[1];
  // A prefix in a directory that does not exist: every open fails.
  ASSERT_EQ(log.Initialize(true, 1, "/var/bexo/missing/events", 2, "en", false, 100), 0);
  ASSERT_EQ(Write(log, std::string(65536 - 8, 'f')), 1);
  EXPECT_EQ(Write(log, "overflow\n"), 0);
  const std::string open_error =
      "ERROR: Failed to open " + Path("/var/bexo/missing/events") + " [2:No such file or directory]";
  EXPECT_TRUE(Logged("WriteMemoryLog|" + open_error));
  EXPECT_EQ(log.Flush(), 0);
  EXPECT_TRUE(Logged("Flush|" + open_error));
  EXPECT_EQ(log.OpenOutputFileDescriptor(), -1);
  BEXOEventLogBase direct(kLockPath, "direct");
  ASSERT_EQ(direct.Initialize(false, 0, "/var/bexo/missing/events", 2, "en", false, 100), 0);
  EXPECT_EQ(Write(direct, "x\n"), 0);
}

// Before Initialize there is no file to write to: nothing lands in the
// working directory.
TEST_F(EventLogTest, LogWithoutPrefixWritesNoFile) {
  BEXOEventLogBase log(kLockPath, "test");
  char saved[4096];
  ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
  ASSERT_EQ(chdir(root().c_str()), 0);
  EXPECT_EQ(Write(log, "x\n"), 0);
  EXPECT_TRUE(Logged("WriteMemoryLog|ERROR: Failed to open  [22:Invalid argument]"));
  EXPECT_EQ(log.Flush(), 1);  // no buffer yet: nothing to do
  EXPECT_EQ(log.OpenOutputFileStream(), nullptr);
  EXPECT_TRUE(ListFiles(root(), ".").empty());
  ASSERT_EQ(chdir(saved), 0);
}

// The hour shown is the configured zone's; without one the default zone is used.
TEST_F(EventLogTest, LocalizedTimestampUsesTheConfiguredTimeZone) {
  const struct {
    const char* zone;
    int offset_minutes;  // east of UTC, no daylight saving time
  } cases[] = {{"UTC", 0}, {"Asia/Tokyo", 9 * 60}, {"Asia/Kathmandu", 5 * 60 + 45}};
  UxLog::setLevel(3);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.zone);
    WriteFile(Path("/etc/kvelo/morvane.ini"), std::string("[Common]\nTimeZone=") + c.zone + "\n");
    BEXOEventLogBase log(kLockPath, "test");
    char stamp[64];
    log.GetLocalizedTimestamp(stamp, sizeof stamp);
    EXPECT_STREQ(stamp, "");  // no date format yet
    ASSERT_EQ(log.Initialize(true, 0, kPrefix, 2, "en_US", false, 1 << 30), 0);
    EXPECT_TRUE(Logged(std::string("PrepareICU|Create time zone ") + c.zone));
    int hour = -1, minute = -1, month = 0, day = 0, year = 0;
    time_t before = time(nullptr);
    log.GetLocalizedTimestamp(stamp, sizeof stamp);
    time_t after = time(nullptr);
    // en_US: "3/5/24, 9:07:02 PM" (maybe a narrow no-break space before PM).
    ASSERT_EQ(sscanf(stamp, "%d/%d/%d, %d:%d", &month, &day, &year, &hour, &minute), 5) << stamp;
    bool matched = false;
    for (time_t t : {before, after}) {
      time_t shifted = t + c.offset_minutes * 60;
      struct tm utc;
      gmtime_r(&shifted, &utc);
      matched |= (utc.tm_hour % 12 == 0 ? 12 : utc.tm_hour % 12) == hour && utc.tm_min == minute && utc.tm_mday == day;
    }
    EXPECT_TRUE(matched) << stamp;
    log.GetLocalizedTimestamp(stamp, 5);  // does not fit: empty
    EXPECT_STREQ(stamp, "");
  }
  std::filesystem::remove(Path("/etc/kvelo/morvane.ini"));
  BEXOEventLogBase ja(kLockPath, "test");
  ASSERT_EQ(ja.Initialize(true, 0, kPrefix, 2, "ja", false, 1 << 30), 0);
  EXPECT_TRUE(Logged("PrepareICU|Use default time zone"));
  char stamp[64];
  ja.GetLocalizedTimestamp(stamp, sizeof stamp);
  EXPECT_NE(std::string(stamp).find('/'), std::string::npos) << stamp;  // ja: "2024/03/05 21:07:02"
}

// The shared counter starts zeroed, is seen by forked children, and restarts
// at 1 on another day.
TEST_F(EventLogTest, RolloverCounterIsSharedAndRestartsEachDay) {
  BEXOLogRolloverCounter* counter = CreateSharedRolloverCounter();
  ASSERT_NE(counter, nullptr);
  EXPECT_EQ(counter->counter, 0);
  EXPECT_EQ(counter->stamp, 0u);
  counter->Init();
  EXPECT_EQ(counter->GetCounter(), 1);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    counter->IncrementCounter();
    counter->IncrementCounter();
    _exit(0);
  }
  ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
  EXPECT_EQ(counter->GetCounter(), 3);
  counter->stamp -= 86400;  // yesterday
  EXPECT_EQ(counter->GetCounter(), 1);
  EXPECT_EQ(counter->GetCounter(), 1);
  EXPECT_EQ(shmdt(counter), 0);
}

}  // namespace
