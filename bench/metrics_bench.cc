// One MetricGetCpuUtilization and one MetricGetMemoryUtilization call beside
// psutil's cpu_times() and virtual_memory(), which read the same /proc files.
// psutil runs in /usr/bin/python3 (Debian python3-psutil) during the same
// benchmark; both sides are timed as the median of five batches of calls,
// and the counters give each side's ns per call and their ratio.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "metrics.h"

namespace {

constexpr int kBatches = 5;
constexpr int kCallsPerBatch = 20000;

template <typename Call>
double MedianNsPerCall(Call call) {
  std::vector<double> batches;
  for (int i = 0; i < 1000; ++i) call();
  for (int b = 0; b < kBatches; ++b) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kCallsPerBatch; ++i) call();
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    batches.push_back(spent.count() / kCallsPerBatch);
  }
  std::sort(batches.begin(), batches.end());
  return batches[kBatches / 2];
}

// The same measurement inside Python; -1 when psutil is not available.
double PsutilNsPerCall(const char* function) {
  const std::string command =
      "/usr/bin/python3 -c 'import psutil, time, statistics\n"
      "f = psutil." +
      std::string(function) +
      "\n"
      "[f() for _ in range(1000)]\n"
      "r = []\n"
      "for b in range(" +
      std::to_string(kBatches) +
      "):\n"
      "  t = time.perf_counter_ns()\n"
      "  for _ in range(" +
      std::to_string(kCallsPerBatch) +
      "): f()\n"
      "  r.append((time.perf_counter_ns() - t) / " +
      std::to_string(kCallsPerBatch) +
      ")\n"
      "print(statistics.median(r))' 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  double ns = -1;
  if (fscanf(pipe, "%lf", &ns) != 1) ns = -1;
  pclose(pipe);
  return ns;
}

template <typename Call>
void BesidePsutil(benchmark::State& state, const char* psutil_function, Call call) {
  double bexo_ns = 0, psutil_ns = 0;
  for (auto _ : state) {
    bexo_ns = MedianNsPerCall(call);
    psutil_ns = PsutilNsPerCall(psutil_function);
    state.SetIterationTime(bexo_ns * 1e-9);
  }
  if (psutil_ns < 0) state.SkipWithError("python3-psutil is not installed");
  state.counters["bexo_ns"] = bexo_ns;
  state.counters["psutil_ns"] = psutil_ns;
  state.counters["psutil/bexo"] = psutil_ns / bexo_ns;
}

void BM_CpuUtilization_vs_psutil_cpu_times(benchmark::State& state) {
  BesidePsutil(state, "cpu_times", [] {
    unsigned long long busy, total;
    benchmark::DoNotOptimize(MetricGetCpuUtilization(busy, total));
  });
}

void BM_MemoryUtilization_vs_psutil_virtual_memory(benchmark::State& state) {
  BesidePsutil(state, "virtual_memory", [] {
    unsigned long used, total;
    benchmark::DoNotOptimize(MetricGetMemoryUtilization(used, total));
  });
}

}  // namespace

BENCHMARK(BM_CpuUtilization_vs_psutil_cpu_times)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MemoryUtilization_vs_psutil_virtual_memory)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
