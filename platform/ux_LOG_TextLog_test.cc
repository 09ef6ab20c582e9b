// The structured text log: what jq reads from its files, rotation and the
// cursor's order, damaged lines, the bounded lock wait, clean-up by age.
#include "ux_LOG_TextLog.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <string>

#include "BEXOFileMutex.h"
#include "slog_test_util.h"
#include "temp_root.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_LogFiles.h"
#include "ux_LOG_LogWriter.h"
#include "ux_LOG_TextLogCursor.h"
#include "ux_LOG_TextLogUtil.h"
#include "wall_clock.h"

namespace {

using bexo_test::Jq;
using bexo_test::LogFiles;
using bexo_test::ReadFile;
using bexo_test::ReadLog;
using bexo_test::WriteFile;

class TextLogTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = Path("/var/bexo/slog");
    log_ = ux_LOG_LogDevice::GetReadableTextLog("/var/bexo/slog", "t", true, nullptr, nullptr, false);
    ASSERT_NE(log_, nullptr);
    log_->SetSynchronizationLevel(2);
    writer_.AddLogDevice(log_);
  }
  void TearDown() override {
    writer_.RemoveLogDevice(log_);
    log_->ReleaseLog();
    bexo_test::UseSystemClock();
    TempRootTest::TearDown();
  }
  void WriteNumbered(int from, int to) {
    for (int i = from; i < to; ++i) {
      ux_LOG_LogEntry entry(7, 1);
      entry.AddAttrib4u("n", static_cast<uint32_t>(i));
      writer_.WriteEntry(entry);
    }
  }
  std::string dir_;
  ux_LOG_TextLog* log_ = nullptr;
  ux_LOG_LogWriter writer_{nullptr};
};

std::vector<uint32_t> Numbers(const std::vector<ux_LOG_LogEntry>& entries) {
  std::vector<uint32_t> numbers;
  for (const auto& e : entries) numbers.push_back(static_cast<uint32_t>(e.FindAttrib("n")->number));
  return numbers;
}

std::vector<uint32_t> Range(uint32_t from, uint32_t to) {
  std::vector<uint32_t> numbers;
  for (uint32_t i = from; i < to; ++i) numbers.push_back(i);
  return numbers;
}

TEST_F(TextLogTest, JqReadsKindLevelAndEveryAttributeWithItsTypeInOrder) {
  ux_LOG_LogEntry entry(0x4000042, 9);
  entry.SetEntryID(77);
  entry.AddAttribMBStr("text", "quote \" backslash \\ tab\t line\n end");
  entry.AddAttribMBStr("bad_utf8", "a\xff" "b\xc3");
  entry.AddAttribMBStr("kana", "\xe3\x81\x82");
  entry.AddAttrib1u("u8", 255);
  entry.AddAttrib4u("u32", 4294967295u);
  entry.AddAttrib4("s32", -2147483647 - 1);
  entry.AddAttribMBStr("text", "repeated name");
  writer_.WriteEntry(entry);

  EXPECT_EQ(Jq("[.kind,.id,.level,(.attrs|map([.name,.type,.value]))]", LogFiles(dir_, "t")),
            "[67108930,77,9,[[\"text\",\"string\",\"quote \\\" backslash \\\\ tab\\t line\\n end\"],"
            "[\"bad_utf8\",\"string\",\"a\xef\xbf\xbd" "b\xef\xbf\xbd\"],[\"kana\",\"string\",\"\xe3\x81\x82\"],"
            "[\"u8\",\"u8\",255],[\"u32\",\"u32\",4294967295],[\"s32\",\"s32\",-2147483648],"
            "[\"text\",\"string\",\"repeated name\"]]]\n");
  // The local date jq sees is the one the entry reports.
  int year, month, day;
  entry.GetEventLocalDate(year, month, day);
  char date[16];
  snprintf(date, sizeof date, "%04d-%02d-%02d", year, month, day);
  EXPECT_EQ(Jq(".time[0:10]", LogFiles(dir_, "t")), std::string("\"") + date + "\"\n");

  std::vector<ux_LOG_LogEntry> read = ReadLog(dir_, "t");
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[0].GetAttribs().size(), 7u);
  EXPECT_EQ(read[0].GetAttribs()[5].number, -2147483647 - 1);
  EXPECT_EQ(read[0].GetEventTime().tv_sec, entry.GetEventTime().tv_sec);
}

TEST_F(TextLogTest, RotationRenamesTheActiveFileAndTheCursorReadsOldestFirst) {
  log_->SetRotationBySize(1000);
  WriteNumbered(0, 100);
  EXPECT_EQ(std::string(log_->GetActiveLogPath()), dir_ + "/t.log");
  std::string files = LogFiles(dir_, "t");
  EXPECT_NE(files.find(dir_ + "/t.0000000001.log"), std::string::npos);
  struct stat info;
  ASSERT_EQ(stat((dir_ + "/t.0000000001.log").c_str(), &info), 0);
  EXPECT_LE(info.st_size, 1000);
  EXPECT_EQ(Numbers(ReadLog(dir_, "t")), Range(0, 100));
  std::string expected = "[";
  for (int i = 0; i < 100; ++i) expected += std::to_string(i) + (i < 99 ? "," : "]\n");
  EXPECT_EQ(Jq("[(., inputs) | .attrs[0].value]", files), expected);

  // The lock file keeps the last number; a stale or unreadable one falls
  // back to the directory, so numbers still only grow.
  const size_t rotated = ux_log_files::ListRotated(dir_, "t").size();
  for (const char* saved : {"00000000000000000001\n", "junk"}) {
    WriteFile(dir_ + "/t.lock", saved);
    WriteNumbered(100, 120);
  }
  std::vector<ux_log_files::RotatedFile> now = ux_log_files::ListRotated(dir_, "t");
  EXPECT_GE(now.size(), rotated + 2);
  EXPECT_EQ(now.back().sequence, static_cast<int64_t>(now.size()));
  EXPECT_EQ(Numbers(ReadLog(dir_, "t")).size(), 140u);
}

TEST_F(TextLogTest, CursorContinuesWithEntriesWrittenLaterAcrossRotations) {
  log_->SetRotationBySize(2000);
  WriteNumbered(0, 5);
  ux_LOG_TextLogCursor cursor(dir_.c_str(), "t", 0, false);
  ux_LOG_LogEntry entry;
  std::vector<ux_LOG_LogEntry> seen;
  while (cursor.Next(entry)) seen.push_back(entry);
  WriteNumbered(5, 80);  // several rotations while the cursor waits at the end
  while (cursor.Next(entry)) seen.push_back(entry);
  WriteNumbered(80, 90);
  while (cursor.Next(entry)) seen.push_back(entry);
  EXPECT_EQ(Numbers(seen), Range(0, 90));
}

TEST_F(TextLogTest, DamagedLinesCostOnlyThemselves) {
  WriteNumbered(0, 2);
  const std::string good = ReadFile(dir_ + "/t.log");
  const std::string first = good.substr(0, good.find('\n') + 1);
  const std::string second = good.substr(first.size());
  const struct {
    const char* name;
    std::string damage;
    uint64_t damaged;
  } cases[] = {
      {"torn line", first.substr(0, 40) + "\n", 1},
      {"not JSON", "hello\n", 1},
      {"trailing text", first.substr(0, first.size() - 1) + " x\n", 1},
      {"bad time", "{\"time\":\"2026-02-30T00:00:00.000000+00:00\",\"kind\":1,\"id\":1,\"level\":1,\"attrs\":[]}\n", 1},
      {"u8 out of range", "{\"time\":\"2026-02-03T00:00:00.000000+00:00\",\"kind\":1,\"id\":1,\"level\":1,"
                          "\"attrs\":[{\"name\":\"a\",\"type\":\"u8\",\"value\":300}]}\n", 1},
      {"unknown type", "{\"time\":\"2026-02-03T00:00:00.000000+00:00\",\"kind\":1,\"id\":1,\"level\":1,"
                       "\"attrs\":[{\"name\":\"a\",\"type\":\"f64\",\"value\":1.5}]}\n", 1},
      {"invalid UTF-8", "{\"x\":\"\xff\"}\n", 1},
      {"deep nesting", std::string(100000, '[') + "\n", 1},
      {"over-long line", std::string(3 << 20, 'x') + "\n", 1},
      {"empty line", "\n", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteFile(dir_ + "/t.log", first + c.damage + second);
    uint64_t damaged = 0;
    EXPECT_EQ(Numbers(ReadLog(dir_, "t", &damaged)), Range(0, 2));
    EXPECT_EQ(damaged, c.damaged);
    if (c.damaged > 0) {
      ux_LOG_TextLogCursor strict(dir_.c_str(), "t", 0, false);
      ux_LOG_LogEntry entry;
      EXPECT_TRUE(strict.Next(entry));
      EXPECT_THROW(strict.Next(entry), ux_EXCEPTION_base);
    }
  }
}

// A writer killed mid-line leaves a fragment without a line feed: the next
// append starts a new line, and a torn tail of a rotated file is skipped.
TEST_F(TextLogTest, AppendAfterATornTailKeepsTheNextEntryWhole) {
  WriteNumbered(0, 1);
  std::string content = ReadFile(dir_ + "/t.log");
  WriteFile(dir_ + "/t.log", content + content.substr(0, 30));
  WriteNumbered(1, 2);
  WriteFile(dir_ + "/t.0000000001.log", content + content.substr(0, 30));
  uint64_t damaged = 0;
  EXPECT_EQ(Numbers(ReadLog(dir_, "t", &damaged)), std::vector<uint32_t>({0, 0, 1}));
  EXPECT_EQ(damaged, 2u);
}

TEST_F(TextLogTest, LockHeldElsewhereThrowsFailedToGetLockInBoundedTime) {
  ux_LOG_LogConfig::SetLockWaitMs(200);
  BEXOFileMutex other((dir_ + "/t.lock").c_str(), true);
  ASSERT_EQ(other.lock(), 0);
  ux_LOG_LogEntry entry(1, 1);
  time_t start = time(nullptr);
  try {
    writer_.WriteEntry(entry);
    ADD_FAILURE() << "no exception";
  } catch (const ux_EXCEPTION_base& e) {
    EXPECT_NE(std::string(e.get_message()).find("failed to get lock"), std::string::npos);
  }
  EXPECT_LE(time(nullptr) - start, 2);
  other.unlock();
  writer_.WriteEntry(entry);
  EXPECT_EQ(ReadLog(dir_, "t").size(), 1u);
  ux_LOG_LogConfig::SetLockWaitMs(ux_LOG_LogConfig::kDefaultLockWaitMs);
}

TEST_F(TextLogTest, DeleteLogsByAgeRemovesRotatedFilesOlderThanTheDays) {
  bexo_test::SetWallClockToNoon(2026, 3, 10);
  const time_t noon = bexo::WallClockNow().tv_sec;
  const struct {
    const char* file;
    int days_old;
    bool kept;
  } cases[] = {{"t.0000000001.log", 5, false}, {"t.0000000002.log", 2, false},
               {"t.0000000003.log", 1, true},  {"t.0000000004.log", 0, true},
               {"t.log", 9, true},             {"u.0000000001.log", 9, true}};
  for (const auto& c : cases) {
    std::string path = dir_ + "/" + c.file;
    WriteFile(path, "x\n");
    struct timeval times[2] = {{noon - c.days_old * 86400, 0}, {noon - c.days_old * 86400, 0}};
    ASSERT_EQ(utimes(path.c_str(), times), 0);
  }
  EXPECT_EQ(ux_LOG_TextLogUtil::DeleteLogsByAge("/var/bexo/slog", "t", 1), 2);
  for (const auto& c : cases) EXPECT_EQ(bexo_test::FileExists(dir_ + "/" + c.file), c.kept) << c.file;
  EXPECT_EQ(ux_LOG_TextLogUtil::DeleteLogsByAge("/var/bexo/missing", "t", 1), -1);
}

}  // namespace
