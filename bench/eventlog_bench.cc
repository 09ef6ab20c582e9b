// Lines per second written into one event log by 1 and 2 forked processes,
// beside the same lines appended with write(2) to an O_APPEND file under
// flock(2) by as many processes. Both include getting the lines into their
// file: the event log's time counts its dumps (O_SYNC) and the final Flush.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "EventLogBase.h"
#include "product_path.h"

namespace {

constexpr int kLinesPerProcess = 20000;

// An access-log-like line of 128 bytes.
std::string Line(int number) {
  char head[64];
  int n = snprintf(head, sizeof head, "2024-03-05 21:07:02 client=10.0.0.1 seq=%08d ", number);
  std::string line(head, n);
  line.append(127 - line.size(), 'x');
  line += '\n';
  return line;
}

// Forks `processes` children that each run `body(index)`, and waits for them.
template <typename Body>
void RunProcesses(int processes, benchmark::State& state, Body body) {
  std::vector<pid_t> children;
  for (int p = 0; p < processes; ++p) {
    pid_t pid = fork();
    if (pid < 0) {
      state.SkipWithError("fork failed");
      break;
    }
    if (pid == 0) _exit(body(p));
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError("a writer failed");
    }
  }
}

void SetLineCounter(benchmark::State& state) {
  state.counters["lines/s"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * state.range(0) * kLinesPerProcess,
      benchmark::Counter::kIsRate);
}

void BM_SharedEventLog(benchmark::State& state) {
  const int processes = static_cast<int>(state.range(0));
  BEXOEventLogBase log("/var/bexo/BENCHEVENTLOG.LOCK", "bench");
  if (log.Initialize(true, 0, "/var/bexo/log/bench_eventlog", 2, "en", false, INT_MAX) != 0) {
    state.SkipWithError("cannot initialise the event log");
    return;
  }
  std::vector<std::string> lines;
  for (int i = 0; i < kLinesPerProcess; ++i) lines.push_back(Line(i));
  for (auto _ : state) {
    RunProcesses(processes, state, [&](int) {
      for (const std::string& line : lines) {
        if (log.WriteMemoryLog(line.data(), static_cast<unsigned>(line.size())) != 1) return 1;
      }
      return 0;
    });
    if (log.Flush() != 1) state.SkipWithError("flush failed");
    state.PauseTiming();
    char name[PATH_MAX];
    log.GetOutputFileName(name, sizeof name);
    unlink(name);
    state.ResumeTiming();
  }
  SetLineCounter(state);
}

void BM_FlockAppendWrite(benchmark::State& state) {
  const int processes = static_cast<int>(state.range(0));
  const std::string path = bexo::ProductPath("/var/bexo/log/bench_flock");
  std::vector<std::string> lines;
  for (int i = 0; i < kLinesPerProcess; ++i) lines.push_back(Line(i));
  for (auto _ : state) {
    RunProcesses(processes, state, [&](int) {
      // Its own open file description: flock then excludes the other writers.
      int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
      if (fd < 0) return 1;
      for (const std::string& line : lines) {
        flock(fd, LOCK_EX);
        ssize_t written = write(fd, line.data(), line.size());
        flock(fd, LOCK_UN);
        if (written != static_cast<ssize_t>(line.size())) return 1;
      }
      close(fd);
      return 0;
    });
    state.PauseTiming();
    unlink(path.c_str());
    state.ResumeTiming();
  }
  SetLineCounter(state);
}

BENCHMARK(BM_SharedEventLog)->ArgName("processes")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlockAppendWrite)->ArgName("processes")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

// Runs under a temp product root when none is set, so that the lock files
// and the log files never land in the real /var/bexo.
int main(int argc, char** argv) {
  std::string temp_root;
  if (getenv("BEXO_ROOT") == nullptr) {
    char pattern[] = "/tmp/bexo-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return 1;
    temp_root = pattern;
    setenv("BEXO_ROOT", pattern, 1);
  }
  std::filesystem::create_directories(bexo::ProductPath("/var/bexo/log"));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (!temp_root.empty()) std::filesystem::remove_all(temp_root);
  return 0;
}
