// One structured log written by several forked processes, each with several
// threads and a device each, rotating every few kilobytes: the cursor then
// delivers every entry exactly once, whole, in each writer's order. A writer
// killed with SIGKILL in the middle of an append never breaks a reader.
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "forked_children.h"
#include "slog_test_util.h"
#include "temp_root.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_LogConfig.h"
#include "ux_LOG_LogWriter.h"
#include "ux_LOG_TextLog.h"

namespace {

constexpr char kDir[] = "/var/bexo/slog";
constexpr int kProcesses = 3;
constexpr int kThreads = 3;
constexpr int kEntries = 400;  // per thread

// Writes entries numbered from 0 through a device of its own until `count`
// are written (or forever when count < 0). False when a write failed.
bool WriteNumbered(int writer_id, int count, uint32_t rotation, size_t padding) {
  ux_LOG_TextLog* log = ux_LOG_LogDevice::GetTextLog(kDir, "fork", true, nullptr, nullptr, false);
  if (log == nullptr) return false;
  log->SetSynchronizationLevel(2);
  log->SetRotationBySize(rotation);
  ux_LOG_LogWriter writer(nullptr);
  writer.AddLogDevice(log);
  bool ok = true;
  for (int i = 0; count < 0 || i < count; ++i) {
    ux_LOG_LogEntry entry(1, 1);
    entry.AddAttrib4u("writer", static_cast<uint32_t>(writer_id));
    entry.AddAttrib4u("seq", static_cast<uint32_t>(i));
    // Varying lengths, so a torn or interleaved line cannot pass as whole.
    for (size_t left = padding + static_cast<size_t>(i % 97); left > 0;) {
      size_t part = std::min(left, ux_LOG_LogEntry::kMaxStringBytes);
      entry.AddAttribMBStr("pad", std::string(part, static_cast<char>('a' + i % 26)).c_str());
      left -= part;
    }
    try {
      writer.WriteEntry(entry);
    } catch (const ux_EXCEPTION_base&) {
      ok = false;
    }
  }
  writer.RemoveLogDevice(log);
  log->ReleaseLog();
  return ok;
}

class SlogForkTest : public bexo_test::TempRootTest {};

TEST_F(SlogForkTest, EveryEntryOfEveryProcessAndThreadArrivesOnceWholeAndInOrder) {
  for (pid_t pid : bexo_test::SpawnWorkers(kProcesses, kThreads, [](int p, int t) {
         return WriteNumbered(p * 10 + t, kEntries, 6000, 40);
       })) {
    EXPECT_EQ(bexo_test::WaitExit(pid), 0);
  }

  const std::string dir = Path(kDir);
  uint64_t damaged = 0;
  std::map<int64_t, std::vector<int64_t>> by_writer;
  for (const ux_LOG_LogEntry& entry : bexo_test::ReadLog(dir, "fork", &damaged)) {
    ASSERT_EQ(entry.GetAttribs().size(), 3u);
    by_writer[entry.FindAttrib("writer")->number].push_back(entry.FindAttrib("seq")->number);
  }
  EXPECT_EQ(damaged, 0u);
  ASSERT_EQ(by_writer.size(), static_cast<size_t>(kProcesses * kThreads));
  for (const auto& writer : by_writer) {
    ASSERT_EQ(writer.second.size(), static_cast<size_t>(kEntries)) << writer.first;
    for (int i = 0; i < kEntries; ++i) ASSERT_EQ(writer.second[i], i) << writer.first;
  }
  // Many rotations happened, and jq parses every line of every file.
  std::string files = bexo_test::LogFiles(dir, "fork");
  EXPECT_GT(std::count(files.begin(), files.end(), ' '), 20);
  EXPECT_EQ(bexo_test::Jq("[(., inputs)] | length", files),
            std::to_string(kProcesses * kThreads * kEntries) + "\n");
}

TEST_F(SlogForkTest, WriterKilledMidAppendNeverBreaksAReader) {
  const std::string dir = Path(kDir);
  for (int round = 0; round < 4; ++round) {
    std::vector<pid_t> children;
    for (int p = 0; p < 2; ++p) {
      pid_t pid = fork();
      ASSERT_GE(pid, 0);
      // Lines of about 300 kB: a kill lands inside a write often enough.
      if (pid == 0) _exit(WriteNumbered(100 + p, -1, 4 << 20, 300000) ? 0 : 1);
      children.push_back(pid);
    }
    struct timespec pause = {0, 30 * 1000 * 1000};
    nanosleep(&pause, nullptr);
    for (pid_t pid : children) kill(pid, SIGKILL);
    for (pid_t pid : children) waitpid(pid, nullptr, 0);
  }
  // A survivor's entry after all that is read whole.
  ASSERT_TRUE(WriteNumbered(7, 1, 4 << 20, 10));
  uint64_t damaged = 0;
  std::vector<ux_LOG_LogEntry> entries = bexo_test::ReadLog(dir, "fork", &damaged);
  ASSERT_FALSE(entries.empty());
  RecordProperty("torn_lines", static_cast<int>(damaged));
  EXPECT_LE(damaged, 8u);  // at most one torn line per killed writer
  for (const ux_LOG_LogEntry& entry : entries) {
    size_t pad = 0;
    for (const auto& attrib : entry.GetAttribs()) pad += attrib.text.size();
    EXPECT_EQ(pad, (entry.FindAttrib("writer")->number == 7 ? 10u : 300000u) +
                       static_cast<size_t>(entry.FindAttrib("seq")->number % 97));
  }
  EXPECT_EQ(entries.back().FindAttrib("writer")->number, 7);
}

}  // namespace
