// Structured log throughput: a web-security violation entry (20 attributes,
// about 1.3 kB of JSON) written through CM_log_writer into its rotating
// log (each entry appended whole under the log's lock file) by 1 thread and
// by 2 processes, beside spdlog writing the same JSON line with a file
// logger (pattern "%v"), buffered and flushed per line; and entries read
// back by the cursor. Files go under BEXO_ROOT and are removed afterwards. A
// summary prints each figure beside its peer.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "CM_log_writer_and_reader.h"
#include "product_path.h"
#include "ux_LOG_EntryJson.h"
#include "ux_LOG_LogWriter.h"
#include "ux_LOG_TextLog.h"
#include "ux_LOG_TextLogCursor.h"

#if __has_include(<spdlog/spdlog.h>)
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#define BEXO_HAVE_SPDLOG 1
#endif

namespace {

constexpr char kDir[] = "/var/bexo/slogbench";
constexpr int kProcessEntries = 40000;  // per process
constexpr int kReadEntries = 100000;
constexpr int kRepetitions = 5;

std::string g_line;  // the entry's JSON line, line feed included
ux_LOG_LogEntry g_entry;  // the same entry

void WriteSample(CM_log_writer& writer) {
  writer.write_web_security_violation_log(
      "https://www.example-shop.com/catalog/item-1234.html?ref=home", "192.168.10.25", "jsmith",
      "jsmith@corp.example", "item-1234.html", 2, "malicious-site-rule-17", "opp-4711", 1, 3,
      "101,205,330", 4, 87, "default-web-policy", 1, 0, 2, 5);
}

void RemoveFiles() {
  std::error_code error;
  std::filesystem::remove_all(bexo::ProductPath(kDir), error);
}

// The library alone: one prepared entry appended under the lock file to a
// log that does not rotate (no file creation on the way).
void BM_TextLogNoRotation(benchmark::State& state) {
  ux_LOG_TextLog* log = ux_LOG_LogDevice::GetTextLog(kDir, "plain", true, nullptr, nullptr, false);
  log->SetSynchronizationLevel(2);
  ux_LOG_LogWriter writer(nullptr);
  writer.AddLogDevice(log);
  for (auto _ : state) writer.WriteEntry(g_entry);
  writer.RemoveLogDevice(log);
  log->ReleaseLog();
  state.SetItemsProcessed(state.iterations());
  RemoveFiles();
}

void BM_CMLogWriter(benchmark::State& state) {
  CM_log_writer writer(nullptr, kDir, "bench");
  for (auto _ : state) WriteSample(writer);
  state.SetItemsProcessed(state.iterations());
  RemoveFiles();
}

// Each iteration: 2 processes writing kProcessEntries each; wall time.
void RunInTwoProcesses(benchmark::State& state, void (*body)()) {
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    pid_t pids[2];
    for (pid_t& pid : pids) {
      pid = fork();
      if (pid == 0) {
        body();
        _exit(0);
      }
    }
    for (pid_t pid : pids) waitpid(pid, nullptr, 0);
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    RemoveFiles();
  }
  state.SetItemsProcessed(state.iterations() * 2 * kProcessEntries);
}

void BM_CMLogWriter_2Processes(benchmark::State& state) {
  RunInTwoProcesses(state, [] {
    CM_log_writer writer(nullptr, kDir, "bench");
    for (int i = 0; i < kProcessEntries; ++i) WriteSample(writer);
  });
}

void BM_CursorRead(benchmark::State& state) {
  {
    CM_log_writer writer(nullptr, kDir, "read");
    for (int i = 0; i < kReadEntries; ++i) WriteSample(writer);
  }
  for (auto _ : state) {
    ux_LOG_TextLogCursor cursor(kDir, "read", 0, true);
    ux_LOG_LogEntry entry;
    int read = 0;
    while (cursor.Next(entry)) ++read;
    if (read != kReadEntries) state.SkipWithError("entries missing");
  }
  state.SetItemsProcessed(state.iterations() * kReadEntries);
  RemoveFiles();
}

#ifdef BEXO_HAVE_SPDLOG
std::shared_ptr<spdlog::logger> SpdlogFile(bool flush_each) {
  std::string path = bexo::ProductPath(kDir) + "/spdlog.log";
  auto logger = std::make_shared<spdlog::logger>(
      "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
  logger->set_pattern("%v");
  if (flush_each) logger->flush_on(spdlog::level::info);
  return logger;
}

void BM_Spdlog(benchmark::State& state) {
  auto logger = SpdlogFile(state.range(0) != 0);
  const std::string text = g_line.substr(0, g_line.size() - 1);
  for (auto _ : state) logger->info(text);
  logger->flush();
  state.SetItemsProcessed(state.iterations());
  logger.reset();
  RemoveFiles();
}

void BM_Spdlog_2Processes(benchmark::State& state) {
  RunInTwoProcesses(state, [] {
    auto logger = SpdlogFile(true);  // whole lines from both processes
    const std::string text = g_line.substr(0, g_line.size() - 1);
    for (int i = 0; i < kProcessEntries; ++i) logger->info(text);
  });
}
#endif

class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto rate = run.counters.find("items_per_second");
      if (run.aggregate_name == "median" && rate != run.counters.end()) {
        const std::string& args = run.run_name.args;
        rates_[run.run_name.function_name + (args.empty() ? "" : "/" + args)] = rate->second.value;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\nentries/s (one %zu-byte JSON line; medians of %d repetitions), ours beside spdlog 1.10\n"
           "(spdlog: buffered unless flushed per line; no rotation; CM_log_writer rotates at 102400\n"
           "bytes, a new file every ~80 entries; 2 processes: spdlog flushed per line):\n",
           g_line.size(), kRepetitions);
    printf("%-34s %12s %14s %8s\n", "case", "entries/s", "spdlog/s", "ratio");
    const char* cases[][3] = {
        {"CM_log_writer, 1 thread (rotating)", "BM_CMLogWriter", "BM_Spdlog/0"},
        {"  vs spdlog flushed per line", "BM_CMLogWriter", "BM_Spdlog/1"},
        {"text log, no rotation, 1 thread", "BM_TextLogNoRotation", "BM_Spdlog/0"},
        {"  vs spdlog flushed per line", "BM_TextLogNoRotation", "BM_Spdlog/1"},
        {"CM_log_writer, 2 processes", "BM_CMLogWriter_2Processes", "BM_Spdlog_2Processes"},
        {"cursor read", "BM_CursorRead", ""},
    };
    for (const auto& c : cases) {
      double ours = rates_[c[1]], peer = *c[2] ? rates_[c[2]] : 0;
      printf("%-34s %12.0f %14.0f %7.2fx\n", c[0], ours, peer, peer > 0 ? ours / peer : 0.0);
    }
  }

 private:
  std::map<std::string, double> rates_;
};

void Repeated(benchmark::internal::Benchmark* bench) {
  bench->Repetitions(kRepetitions)->ReportAggregatesOnly(true);
}

}  // namespace

BENCHMARK(BM_TextLogNoRotation)->Apply(Repeated);
BENCHMARK(BM_CMLogWriter)->Apply(Repeated);
BENCHMARK(BM_CMLogWriter_2Processes)->UseManualTime()->Iterations(1)->Apply(Repeated);
BENCHMARK(BM_CursorRead)->Iterations(3)->Apply(Repeated);
#ifdef BEXO_HAVE_SPDLOG
BENCHMARK(BM_Spdlog)->Arg(0)->Arg(1)->Apply(Repeated);
BENCHMARK(BM_Spdlog_2Processes)->UseManualTime()->Iterations(1)->Apply(Repeated);
#endif

int main(int argc, char** argv) {
  // The writer reads the configuration; the sample line is the writer's own.
  std::string config = bexo::ProductPath("/etc/kvelo/morvane.ini");
  std::filesystem::create_directories(std::filesystem::path(config).parent_path());
  if (!std::filesystem::exists(config)) {
    FILE* file = fopen(config.c_str(), "w");
    if (file) fclose(file);
  }
  {
    CM_log_writer writer(nullptr, kDir, "sample");
    WriteSample(writer);
  }
  ux_LOG_TextLogCursor cursor(kDir, "sample", 0, true);
  if (cursor.Next(g_entry)) ux_LOG_EncodeEntry(g_entry, &g_line);
  RemoveFiles();

  benchmark::Initialize(&argc, argv);
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
