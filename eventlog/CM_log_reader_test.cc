// CM_log_reader: the bookmark that saves ahead, resuming from it across
// rotated files and across a change of day (clock seam), and the
// "in constructor." line.
#include <string>
#include <vector>

#include "CM_log_writer_and_reader.h"
#include "slog_test_util.h"
#include "temp_root.h"

namespace {

constexpr char kDir[] = "/var/bexo/cm";

class CMLogReaderTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nCMLogPath=/var/bexo/cm\n");
  }
  void TearDown() override {
    bexo_test::UseSystemClock();
    TempRootTest::TearDown();
  }
  // Event entries numbered from `from` by their identifier; `padding` bytes
  // of description make the log rotate (at 102400 bytes) every ~20 entries.
  void Write(int from, int to, size_t padding) {
    CM_log_writer writer(nullptr, nullptr, "events");
    for (int i = from; i < to; ++i) writer.write_event_log(i, std::string(padding, 'x').c_str(), 0, 0);
  }
  int Bookmark() { return std::stoi(bexo_test::ReadFile(Path("/var/bexo/cm/events.bmk"))); }
  // Delivers up to `count` entries; their identifiers.
  static std::vector<int> Deliver(CM_log_reader& reader, int count) {
    std::vector<int> ids;
    ux_LOG_LogEntry entry;
    while (count-- > 0 && reader.next(entry) == 1) ids.push_back(static_cast<int>(entry.GetEntryID()));
    return ids;
  }
  static std::vector<int> Range(int from, int to) {
    std::vector<int> ids;
    for (int i = from; i < to; ++i) ids.push_back(i);
    return ids;
  }
};

TEST_F(CMLogReaderTest, BookmarkHoldsTheEndOfTheBatchBeingDelivered) {
  Write(0, 14, 10);
  CM_log_reader reader(nullptr, kDir, "events", "events", 3, 0);
  ASSERT_TRUE(reader.ready());
  // After k entries the bookmark is: the first entry saves 0 + 3, then each
  // time the position reaches the save point it moves 3 further.
  const struct {
    int delivered;
    int bookmark;
  } steps[] = {{1, 3}, {3, 3}, {4, 6}, {7, 9}, {10, 12}};
  int delivered = 0;
  for (const auto& step : steps) {
    EXPECT_EQ(Deliver(reader, step.delivered - delivered), Range(delivered, step.delivered));
    delivered = step.delivered;
    EXPECT_EQ(Bookmark(), step.bookmark) << step.delivered;
  }
  // A reader started from 12 skips 12 entries: 10 and 11 are never delivered.
  CM_log_reader resumed(nullptr, kDir, "events", "events", 3, 0);
  EXPECT_EQ(Deliver(resumed, 100), Range(12, 14));
  EXPECT_EQ(Bookmark(), 15);
}

TEST_F(CMLogReaderTest, ResumesAcrossRotatedFiles) {
  Write(0, 60, 5000);
  ASSERT_NE(bexo_test::LogFiles(Path(kDir), "events").find("events.0000000002.log"), std::string::npos);
  CM_log_reader first(nullptr, kDir, "events", "events", 10, 0);
  EXPECT_EQ(Deliver(first, 25), Range(0, 25));
  EXPECT_EQ(Bookmark(), 30);
  CM_log_reader second(nullptr, kDir, "events", "events", 10, 0);
  EXPECT_EQ(Deliver(second, 100), Range(30, 60));
}

// Five entries yesterday, five today; the bookmark counts from the start of
// the log, and each new day restarts the position.
TEST_F(CMLogReaderTest, ResumesAcrossAChangeOfDay) {
  bexo_test::SetWallClockToNoon(2026, 3, 9);
  Write(0, 5, 10);
  bexo_test::SetWallClockToNoon(2026, 3, 10);
  Write(5, 10, 10);
  {
    CM_log_reader reader(nullptr, kDir, "events", "events", 2, 0);
    EXPECT_EQ(Deliver(reader, 5), Range(0, 5));
    EXPECT_EQ(Bookmark(), 6);
    EXPECT_EQ(Deliver(reader, 1), Range(5, 6));  // today begins: position 0, save at 2
    EXPECT_EQ(Bookmark(), 2);
    EXPECT_EQ(Deliver(reader, 100), Range(6, 10));
    EXPECT_EQ(Bookmark(), 6);
  }
  // Skipping 6 passes the day boundary after 5: today's first entry was
  // already delivered, so the resumed position is 1 and the save point 3.
  CM_log_reader resumed(nullptr, kDir, "events", "events", 2, 0);
  EXPECT_EQ(Deliver(resumed, 1), Range(6, 7));
  EXPECT_EQ(Bookmark(), 3);
  EXPECT_EQ(Deliver(resumed, 100), Range(7, 10));
  EXPECT_EQ(Bookmark(), 5);
}

TEST_F(CMLogReaderTest, OnlyTheFiveArgumentConstructorAnnouncesItself) {
  Write(0, 1, 10);
  testing::internal::CaptureStdout();
  CM_log_reader plain(nullptr, kDir, "events", 5, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "in constructor.\n");
  EXPECT_EQ(plain.bookmark_path(), Path("/var/bexo/cm/events.bmk"));
  testing::internal::CaptureStdout();
  CM_log_reader named(nullptr, kDir, "events", "collector", 5, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(named.bookmark_path(), Path("/var/bexo/cm/collector.bmk"));
  // A log directory that does not exist leaves the reader not ready.
  testing::internal::CaptureStdout();
  CM_log_reader missing(nullptr, "/var/bexo/none", "events", "x", 5, 0);
  testing::internal::GetCapturedStdout();
  ux_LOG_LogEntry entry;
  EXPECT_EQ(missing.next(entry), 0);
}

}  // namespace
