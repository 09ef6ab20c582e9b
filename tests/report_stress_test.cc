// Many processes, many threads, one report file family: every record reaches
// the files exactly once and whole, across rollovers; a killed writer loses
// at most the records of its two unwritten lists and never blocks or corrupts
// the others.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "LogQueue.h"
#include "Report_Log_Read_Write.h"
#include "forked_children.h"
#include "report_files.h"
#include "temp_root.h"

namespace {

using bexo_test::ListFiles;
using bexo_test::ReadFamily;
using bexo_test::SplitLines;

constexpr int kProcesses = 3;
constexpr int kThreads = 3;
constexpr int kRecordsPerThread = 20000;

// "p t seq payload": the payload length and letters follow from the numbers,
// so a torn or spliced line cannot pass as another record.
std::string Record(int process, int thread, int seq) {
  std::string line = std::to_string(process) + " " + std::to_string(thread) + " " + std::to_string(seq) + " ";
  size_t length = static_cast<size_t>((seq * 37 + thread * 11 + process) % 300);
  for (size_t i = 0; i < length; ++i) line += static_cast<char>('a' + (seq + i) % 26);
  return line + "\n";
}

using Seen = std::map<std::tuple<int, int, int>, int>;
const std::tuple<int, int, int> kMalformed{-1, -1, -1};

// How often each record appears; torn or spliced lines count as kMalformed.
Seen Collect(const std::string& content) {
  Seen seen;
  for (const std::string& line : SplitLines(content)) {
    int p = -1, t = -1, s = -1;
    bool whole = sscanf(line.c_str(), "%d %d %d", &p, &t, &s) == 3 && Record(p, t, s) == line + "\n";
    ++seen[whole ? std::make_tuple(p, t, s) : kMalformed];
  }
  return seen;
}

void PushRecords(int process, int thread, int count) {
  LogQueue& queue = Report_Log_Read_Write::GetAccessLogQueue();
  for (int seq = 0; seq < count; ++seq) {
    std::string line = Record(process, thread, seq);
    queue.Push(line.data(), static_cast<int>(line.size()));
  }
}

class ReportStressTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    Report_Log_Read_Write::RefreshConfig();
    dir_ = Path("/etc/kvelo/log");
  }

  // Forks a writer running `body`; it flushes what is left and exits.
  template <typename Body>
  pid_t Spawn(Body body) {
    return bexo_test::Spawn([=] {
      body();
      Report_Log_Read_Write::FlushLog();
      return 0;
    });
  }
  // A writer whose `threads` threads each push `count` records.
  pid_t SpawnPushers(int process, int threads, int count) {
    return Spawn([=] {
      std::vector<std::thread> pushers;
      for (int t = 0; t < threads; ++t) pushers.emplace_back(PushRecords, process, t, count);
      for (auto& pusher : pushers) pusher.join();
    });
  }
  static void WaitAll(const std::vector<pid_t>& pids) {
    for (pid_t pid : pids) ASSERT_EQ(bexo_test::WaitExit(pid), 0);
  }

  std::string dir_;
};

TEST_F(ReportStressTest, EveryRecordOnceAcrossProcessesThreadsAndRollovers) {
  LogQueue::s_rolloverBytes = 256 * 1024;  // dozens of rollovers
  std::vector<pid_t> pids;
  for (int p = 0; p < kProcesses; ++p) {
    pids.push_back(SpawnPushers(p, kThreads, kRecordsPerThread));
  }
  WaitAll(pids);

  int rolled_files = 0;
  for (const std::string& name : ListFiles(dir_, "report_log.access.")) {
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(report_log\.access\.\d{8}(_\d{9})?)"))) << name;
    rolled_files += name.find('_', sizeof "report_log.access.") != std::string::npos;
  }
  EXPECT_GT(rolled_files, 5);

  Seen seen = Collect(ReadFamily(dir_, "report_log.access."));
  EXPECT_EQ(seen.count(kMalformed), 0u);
  ASSERT_EQ(seen.size(), static_cast<size_t>(kProcesses * kThreads * kRecordsPerThread));
  for (const auto& entry : seen) ASSERT_EQ(entry.second, 1);
}

TEST_F(ReportStressTest, KilledWriterLosesOnlyItsPendingBatch) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  char byte = 1;
  // The victim writes 250 records (two full batches), reports, and waits to die.
  pid_t victim = Spawn([&] {
    PushRecords(9, 0, 250);
    if (write(ready[1], &byte, 1) == 1) pause();
  });
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  // A second victim dies holding the family's cross-process lock.
  pid_t holder = Spawn([&] {
    s_AccessLogFileMutex.lock();
    if (write(ready[1], &byte, 1) == 1) pause();
  });
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  std::vector<pid_t> survivors;
  for (int p = 0; p < 2; ++p) {
    survivors.push_back(SpawnPushers(p, 2, 3000));
  }
  usleep(20000);  // the survivors are running (or blocked on the held lock)
  kill(victim, SIGKILL);
  kill(holder, SIGKILL);
  waitpid(victim, nullptr, 0);
  waitpid(holder, nullptr, 0);
  WaitAll(survivors);
  close(ready[0]);
  close(ready[1]);

  Seen seen = Collect(ReadFamily(dir_, "report_log.access."));
  EXPECT_EQ(seen.count(kMalformed), 0u);
  for (int p = 0; p < 2; ++p) {
    for (int t = 0; t < 2; ++t) {
      for (int s = 0; s < 3000; ++s) ASSERT_EQ((seen[{p, t, s}]), 1) << p << " " << t << " " << s;
    }
  }
  for (int s = 0; s < 250; ++s) {
    EXPECT_EQ((seen[{9, 0, s}]), s < 200 ? 1 : 0) << s;
  }
}

// The worst case of several threads: the batch one thread took waits for the
// family lock, which another process holds, while the other threads fill the
// next list until each of them blocks in its own flush. Every record whose
// Push returned is then lost with the process: exactly two lists of 99,
// however many threads push.
TEST_F(ReportStressTest, KilledMultiThreadWriterLosesAtMostTwoListsOf99) {
  constexpr int kVictimThreads = 4;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  char byte = 1;
  pid_t holder = Spawn([&] {
    s_AccessLogFileMutex.lock();
    if (write(ready[1], &byte, 1) == 1) pause();
  });
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  // Per thread: how many of its pushes have returned.
  void* shared = mmap(nullptr, sizeof(std::atomic<int>) * kVictimThreads, PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto* acked = static_cast<std::atomic<int>*>(shared);
  for (int t = 0; t < kVictimThreads; ++t) new (&acked[t]) std::atomic<int>(0);
  pid_t victim = Spawn([&] {
    std::vector<std::thread> pushers;
    for (int t = 0; t < kVictimThreads; ++t) {
      pushers.emplace_back([&, t] {
        LogQueue& queue = Report_Log_Read_Write::GetAccessLogQueue();
        for (int seq = 0;; ++seq) {
          std::string line = Record(9, t, seq);
          queue.Push(line.data(), static_cast<int>(line.size()));
          acked[t].store(seq + 1);
        }
      });
    }
    for (auto& pusher : pushers) pusher.join();
  });
  auto total = [&] {
    int sum = 0;
    for (int t = 0; t < kVictimThreads; ++t) sum += acked[t].load();
    return sum;
  };
  // Wait until every pushing thread is blocked (no progress for 300 ms).
  int last = -1;
  for (int still = 0, i = 0; still < 30 && i < 3000; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    int now = total();
    still = now == last ? still + 1 : 0;
    last = now;
  }
  kill(victim, SIGKILL);
  waitpid(victim, nullptr, 0);
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  close(ready[0]);
  close(ready[1]);

  EXPECT_EQ(total(), 2 * 99) << "records acknowledged while none could be written";
  Seen seen = Collect(ReadFamily(dir_, "report_log.access."));
  EXPECT_EQ(seen.count(kMalformed), 0u);
  for (const auto& entry : seen) EXPECT_NE(std::get<0>(entry.first), 9) << "written after the kill?";
  munmap(shared, sizeof(std::atomic<int>) * kVictimThreads);
}

}  // namespace
