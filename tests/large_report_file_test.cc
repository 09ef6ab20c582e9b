// A report file already past 2 GiB, where a 32-bit off_t ends, still takes
// appends and rolls over. The file is sparse, so it costs no disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "LogQueue.h"
#include "report_files.h"
#include "temp_root.h"

namespace {

constexpr off_t kPast2GiB = (off_t{1} << 31) + 4096;

class LargeReportFileTest : public bexo_test::TempRootTest {};

TEST_F(LargeReportFileTest, FilePast2GiBTakesAppendsAndRollsOver) {
  const std::string dir = Path("/etc/kvelo/log");
  ASSERT_EQ(mkdir(dir.c_str(), 0775), 0);
  LogQueue queue(s_AccessLogFileMutex);
  queue.SetReportFilePath(dir + "/report_log.access");
  std::string suffix;
  const std::string today = queue.GetLogFileName(suffix);
  int fd = open(today.c_str(), O_WRONLY | O_CREAT, 0660);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, kPast2GiB), 0);
  close(fd);

  const std::string line = "past two gibibytes\n";
  ASSERT_EQ(queue.Push(line.data(), static_cast<int>(line.size())), 0);
  ASSERT_EQ(queue.FlushLog(), 0);

  // The full file was renamed with a time suffix and ends with the new line.
  const auto names = bexo_test::ListFiles(dir, "report_log.access");
  ASSERT_EQ(names.size(), 1u);
  EXPECT_GT(names[0].size(), today.size() - dir.size() - 1) << names[0];
  const std::string rolled = dir + "/" + names[0];
  struct stat st;
  ASSERT_EQ(stat(rolled.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, kPast2GiB + static_cast<off_t>(line.size()));
  std::string tail(line.size(), '\0');
  fd = open(rolled.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(pread(fd, &tail[0], tail.size(), kPast2GiB), static_cast<ssize_t>(tail.size()));
  close(fd);
  EXPECT_EQ(tail, line);

  // The next line starts a new file.
  ASSERT_EQ(queue.Push(line.data(), static_cast<int>(line.size())), 0);
  ASSERT_EQ(queue.FlushLog(), 0);
  EXPECT_EQ(bexo_test::ReadFile(today), line);
}

}  // namespace
