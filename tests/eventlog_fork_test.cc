// One event log shared by a daemon and the workers it forks: every line that
// any thread of any worker wrote is in today's files exactly once and in each
// writer's order, and the files roll over at the maximum size.
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "EventLogBase.h"
#include "report_files.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;

constexpr char kLockPath[] = "/var/bexo/FORKTEST.LOCK";
constexpr char kPrefix[] = "/var/bexo/log/access_log";
constexpr int kWorkers = 3;
constexpr int kThreads = 2;
constexpr int kLines = 4000;           // per thread
constexpr unsigned kBufferSize = 65536;
constexpr int kMaxFileSize = 300000;
constexpr size_t kLineSize = 64;

// "w<worker> t<thread> n<number> " padded with the digits of the number to
// 63 bytes, then a line feed: a torn or mixed line cannot look whole.
std::string NumberedLine(int worker, int thread, int number) {
  char head[48];
  int n = snprintf(head, sizeof head, "w%d t%d n%06d ", worker, thread, number);
  return std::string(head, n) + std::string(kLineSize - 1 - n, static_cast<char>('a' + number % 26)) + "\n";
}

// Writes this worker's lines from kThreads threads; exit code 0 when every
// write was taken.
int RunWorker(BEXOEventLogBase& log, int worker) {
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&log, &failures, worker, t] {
      for (int i = 0; i < kLines; ++i) {
        std::string line = NumberedLine(worker, t, i);
        if (log.WriteMemoryLog(line.data(), static_cast<unsigned>(line.size())) != 1) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  return failures == 0 ? 0 : 1;
}

class EventLogForkTest : public bexo_test::TempRootTest {};

TEST_F(EventLogForkTest, WorkersShareOneBufferAndNoLineIsLostOrRepeated) {
  mkdir(Path("/var/bexo/log").c_str(), 0755);
  BEXOEventLogBase log(kLockPath, "access");
  ASSERT_EQ(log.Initialize(true, kBufferSize, kPrefix, 2, "en", false, kMaxFileSize), 0);

  // The workers start together when the parent closes the pipe.
  int start[2];
  ASSERT_EQ(pipe(start), 0);
  std::vector<pid_t> workers;
  for (int w = 0; w < kWorkers; ++w) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(start[1]);
      for (char byte; read(start[0], &byte, 1) > 0;) {
      }
      _exit(RunWorker(log, w));
    }
    workers.push_back(pid);
  }
  close(start[0]);
  close(start[1]);

  // The parent flushes while the workers write, until all have exited.
  size_t running = workers.size();
  while (running > 0) {
    EXPECT_EQ(log.Flush(), 1);
    for (pid_t& pid : workers) {
      if (pid == 0) continue;
      int status = 0;
      pid_t done = waitpid(pid, &status, WNOHANG);
      if (done == 0) continue;
      ASSERT_EQ(done, pid);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
      pid = 0;
      --running;
    }
    usleep(2000);
  }
  ASSERT_EQ(log.Flush(), 1);

  // Today's files, in counter order.
  const std::string first = bexo_test::DatedFile(Path(kPrefix), 1);
  const std::string dir = Path("/var/bexo/log");
  std::vector<std::string> files =
      bexo_test::ListFiles(dir, first.substr(dir.size() + 1, first.size() - dir.size() - 5));
  const size_t total_bytes = size_t{kWorkers} * kThreads * kLines * kLineSize;
  // Every file but the last was appended to until it reached the maximum; one
  // dump (at most one buffer) may have taken it past.
  ASSERT_GE(files.size(), total_bytes / (kMaxFileSize + kBufferSize));
  std::string all;
  for (size_t i = 0; i < files.size(); ++i) {
    char counter[24];
    snprintf(counter, sizeof counter, "%04zu", i + 1);
    EXPECT_EQ(files[i].substr(files[i].size() - 4), counter);
    std::string content = ReadFile(dir + "/" + files[i]);
    if (i + 1 < files.size()) {
      EXPECT_GE(content.size(), static_cast<size_t>(kMaxFileSize)) << files[i];
      EXPECT_LT(content.size(), kMaxFileSize + kBufferSize) << files[i];
    }
    all += content;
  }
  ASSERT_EQ(all.size(), total_bytes);

  // Each writer's lines appear whole, once, and in the order it wrote them.
  std::map<std::pair<int, int>, int> next;
  for (size_t at = 0; at < all.size(); at += kLineSize) {
    int worker = -1, thread = -1, number = -1;
    ASSERT_EQ(sscanf(all.c_str() + at, "w%d t%d n%d ", &worker, &thread, &number), 3) << "at " << at;
    ASSERT_TRUE(all.compare(at, kLineSize, NumberedLine(worker, thread, number)) == 0) << "at " << at;
    int& expected = next[{worker, thread}];
    ASSERT_EQ(number, expected) << "worker " << worker << " thread " << thread;
    ++expected;
  }
  EXPECT_EQ(next.size(), size_t{kWorkers} * kThreads);
}

}  // namespace
