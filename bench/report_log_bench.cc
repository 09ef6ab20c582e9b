// Report logging throughput: the same ~335-byte access record written through
// the report queue (push of the finished line, and the whole WriteAccessLog
// path) and through spdlog's synchronous file logger (pattern "%v"), with 1
// and 2 threads and with 2 processes of 2 threads. Files go under BEXO_ROOT
// and are removed after each benchmark. A summary compares the figures.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "LogQueue.h"
#include "Report_Log_Read_Write.h"
#include "product_path.h"

#if __has_include(<spdlog/spdlog.h>)
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#define BEXO_HAVE_SPDLOG 1
#endif

namespace {

std::string g_line;  // the access record, line feed included
std::string g_dir;   // the report directory

int WriteSampleAccess(Report_Log_Read_Write& writer) {
  return writer.WriteAccessLog("jsmith@corp", "https", "www.example-shop.com", 0,
                               "/catalog/products/electronics/item-1234.html?ref=home", 48213,
                               "text/html; charset=utf-8", "gw-proxy-01", "192.168.10.25", "93.184.216.34", "GET",
                               "S-1-5-21-1004", 27, 1, 734, "Shopping", "policy-default");
}

double CpuSeconds(int who) {
  struct rusage usage;
  getrusage(who, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void RemoveFiles() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(g_dir, error)) {
    std::filesystem::remove(entry.path(), error);
  }
}

// CPU time of the whole process per record, measured by the first thread.
class CpuMeter {
 public:
  explicit CpuMeter(const benchmark::State& state) : first_(state.thread_index() == 0) {
    if (first_) start_ = CpuSeconds(RUSAGE_SELF);
  }
  void Finish(benchmark::State& state) {
    if (!first_) return;
    double records = static_cast<double>(state.iterations()) * state.threads();
    state.counters["cpu_ns_per_record"] = (CpuSeconds(RUSAGE_SELF) - start_) * 1e9 / records;
  }

 private:
  bool first_;
  double start_ = 0;
};

void BM_ReportQueuePush(benchmark::State& state) {
  LogQueue& queue = Report_Log_Read_Write::GetAccessLogQueue();
  CpuMeter meter(state);
  for (auto _ : state) queue.Push(g_line.data(), static_cast<int>(g_line.size()));
  queue.FlushLog();
  meter.Finish(state);
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) RemoveFiles();
}

void BM_WriteAccessLog(benchmark::State& state) {
  Report_Log_Read_Write writer;
  CpuMeter meter(state);
  for (auto _ : state) WriteSampleAccess(writer);
  Report_Log_Read_Write::GetAccessLogQueue().FlushLog();
  meter.Finish(state);
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) RemoveFiles();
}

// The kernel's part alone: the same record in batches of 100, each batch
// appended with one write() to a file kept open, a fresh file every 100 MiB.
// No writer that puts these bytes into a file on this file system can be
// faster; it bounds any multiple of spdlog that is reachable.
void BM_AppendFloor(benchmark::State& state) {
  std::string batch;
  for (int i = 0; i < 100; ++i) batch += g_line;
  const std::string path = g_dir + "/floor.log";
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0660);
  size_t file_bytes = 0;
  int pending = 0;
  CpuMeter meter(state);
  for (auto _ : state) {
    if (++pending < 100) continue;
    pending = 0;
    if (write(fd, batch.data(), batch.size()) != static_cast<ssize_t>(batch.size())) {
      state.SkipWithError("append failed");
      break;
    }
    file_bytes += batch.size();
    if (file_bytes >= 100u << 20) {
      close(fd);
      unlink(path.c_str());
      fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0660);
      file_bytes = 0;
    }
  }
  meter.Finish(state);
  close(fd);
  state.SetItemsProcessed(state.iterations());
  RemoveFiles();
}

constexpr int kProcessRecords = 400000;  // per thread
constexpr int kRepetitions = 7;

// Each iteration: 2 processes x 2 threads, each thread running `body` over
// kProcessRecords records; the time is the wall time of the whole run.
void RunInProcesses(benchmark::State& state, void (*body)(int records)) {
  for (auto _ : state) {
    double cpu_before = CpuSeconds(RUSAGE_CHILDREN);
    auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> pids;
    for (int p = 0; p < 2; ++p) {
      pid_t pid = fork();
      if (pid == 0) {
        std::thread second(body, kProcessRecords);
        body(kProcessRecords);
        second.join();
        _exit(0);
      }
      pids.push_back(pid);
    }
    for (pid_t pid : pids) waitpid(pid, nullptr, 0);
    double records = 4.0 * kProcessRecords;
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    state.SetItemsProcessed(static_cast<int64_t>(records));
    state.counters["cpu_ns_per_record"] = (CpuSeconds(RUSAGE_CHILDREN) - cpu_before) * 1e9 / records;
    RemoveFiles();
  }
}

void BM_ReportQueuePush_2Processes(benchmark::State& state) {
  RunInProcesses(state, [](int records) {
    LogQueue& queue = Report_Log_Read_Write::GetAccessLogQueue();
    for (int i = 0; i < records; ++i) queue.Push(g_line.data(), static_cast<int>(g_line.size()));
    queue.FlushLog();
  });
}

void BM_WriteAccessLog_2Processes(benchmark::State& state) {
  RunInProcesses(state, [](int records) {
    Report_Log_Read_Write writer;
    for (int i = 0; i < records; ++i) WriteSampleAccess(writer);
    Report_Log_Read_Write::GetAccessLogQueue().FlushLog();
  });
}

#ifdef BEXO_HAVE_SPDLOG
std::shared_ptr<spdlog::logger> OpenSpdlog() {
  auto logger = spdlog::basic_logger_mt("bench-" + std::to_string(getpid()), g_dir + "/spdlog.log", false);
  logger->set_pattern("%v");
  return logger;
}

std::shared_ptr<spdlog::logger> g_spdlog;

void BM_Spdlog(benchmark::State& state) {
  if (state.thread_index() == 0) g_spdlog = OpenSpdlog();
  // The same bytes: spdlog appends the line feed itself.
  const std::string text = g_line.substr(0, g_line.size() - 1);
  CpuMeter meter(state);
  for (auto _ : state) g_spdlog->info(text);
  meter.Finish(state);
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) {
    g_spdlog->flush();
    spdlog::drop(g_spdlog->name());
    g_spdlog.reset();
    RemoveFiles();
  }
}

void BM_Spdlog_2Processes(benchmark::State& state) {
  RunInProcesses(state, [](int records) {
    static std::shared_ptr<spdlog::logger> logger = OpenSpdlog();
    const std::string text = g_line.substr(0, g_line.size() - 1);
    for (int i = 0; i < records; ++i) logger->info(text);
    logger->flush();
  });
}
#endif

// Prints records/s of each benchmark beside spdlog's after the usual table.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      auto rate = run.counters.find("items_per_second");
      auto cpu = run.counters.find("cpu_ns_per_record");
      if (rate != run.counters.end()) {
        std::string name = run.benchmark_name();
        std::string key = name.substr(0, name.find('/')) + ":" + std::to_string(run.threads);
        results_[key] = {rate->second.value, cpu != run.counters.end() ? cpu->second.value : 0};
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\nrecords/s (same %zu-byte access record; medians of %d repetitions run in random order), ours beside\n"
           "spdlog 1.10 sync file logger:\n",
           g_line.size(), kRepetitions);
    printf("%-28s %14s %10s %14s %10s %8s\n", "case", "records/s", "cpu ns/rec", "spdlog rec/s", "cpu ns/rec",
           "ratio");
    const char* cases[][3] = {
        {"push, 1 thread", "BM_ReportQueuePush:1", "BM_Spdlog:1"},
        {"push, 2 threads", "BM_ReportQueuePush:2", "BM_Spdlog:2"},
        {"push, 2 processes x 2", "BM_ReportQueuePush_2Processes:1", "BM_Spdlog_2Processes:1"},
        {"WriteAccessLog, 1 thread", "BM_WriteAccessLog:1", "BM_Spdlog:1"},
        {"WriteAccessLog, 2 threads", "BM_WriteAccessLog:2", "BM_Spdlog:2"},
        {"WriteAccessLog, 2 proc x 2", "BM_WriteAccessLog_2Processes:1", "BM_Spdlog_2Processes:1"},
        {"kernel append floor, 1 thr", "BM_AppendFloor:1", "BM_Spdlog:1"},
    };
    for (const auto& c : cases) {
      const Result ours = results_[c[1]];
      const Result peer = results_[c[2]];
      printf("%-28s %14.0f %10.0f %14.0f %10.0f %7.2fx\n", c[0], ours.rate, ours.cpu, peer.rate, peer.cpu,
             peer.rate > 0 ? ours.rate / peer.rate : 0.0);
    }
  }

 private:
  struct Result {
    double rate = 0;
    double cpu = 0;
  };
  std::map<std::string, Result> results_;
};

// Repetitions in random order (see main) spread the moments when the machine
// is slow over all benchmarks alike; the summary takes the medians.
void Repeated(benchmark::internal::Benchmark* bench) {
  bench->Repetitions(kRepetitions)->ReportAggregatesOnly(true);
}

}  // namespace

BENCHMARK(BM_ReportQueuePush)->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.5)->Apply(Repeated);
BENCHMARK(BM_WriteAccessLog)->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.5)->Apply(Repeated);
BENCHMARK(BM_AppendFloor)->UseRealTime()->MinTime(0.5)->Apply(Repeated);
BENCHMARK(BM_ReportQueuePush_2Processes)->Iterations(1)->UseManualTime()->Apply(Repeated);
BENCHMARK(BM_WriteAccessLog_2Processes)->Iterations(1)->UseManualTime()->Apply(Repeated);
#ifdef BEXO_HAVE_SPDLOG
BENCHMARK(BM_Spdlog)->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.5)->Apply(Repeated);
BENCHMARK(BM_Spdlog_2Processes)->Iterations(1)->UseManualTime()->Apply(Repeated);
#endif

int main(int argc, char** argv) {
  Report_Log_Read_Write::RefreshConfig();
  std::string suffix;
  std::string today = Report_Log_Read_Write::GetAccessLogQueue().GetLogFileName(suffix);
  g_dir = today.substr(0, today.rfind('/'));
  {
    Report_Log_Read_Write writer;
    WriteSampleAccess(writer);
  }
  std::ifstream in(today);
  std::getline(in, g_line);
  g_line += '\n';
  RemoveFiles();
  // Interleaved unless the caller says otherwise.
  std::vector<char*> args(argv, argv + argc);
  static char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data());
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
