// The counters of BEXOAtomicInt.h beside std::atomic, single-threaded and
// contended, and the cost of one BEXOHiResTmr scope.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>

#include "BEXOAtomicInt.h"
#include "BEXOHiResTmr.h"

namespace {

// Shared by the threads of a contended run.
BEXOAtomicInt32 g_bexo32;
BEXOAtomicInt64 g_bexo64;
std::atomic<int32_t> g_std32{0};
std::atomic<int64_t> g_std64{0};

void BM_BEXOAtomicInt32_Add(benchmark::State& state) {
  for (auto _ : state) g_bexo32 += 1;
}
void BM_StdAtomicInt32_FetchAdd(benchmark::State& state) {
  for (auto _ : state) g_std32.fetch_add(1);
}
void BM_BEXOAtomicInt32_IncRet(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(g_bexo32.inc_ret());
}
void BM_BEXOAtomicInt32_MultiplyCasLoop(benchmark::State& state) {
  for (auto _ : state) g_bexo32 *= 3;
}
void BM_StdAtomicInt32_MultiplyCasLoop(benchmark::State& state) {
  for (auto _ : state) {
    int32_t seen = g_std32.load(std::memory_order_relaxed);
    while (!g_std32.compare_exchange_weak(seen, static_cast<int32_t>(static_cast<uint32_t>(seen) * 3u))) {
    }
  }
}
// 64-bit add is a compare-exchange loop (the 32-bit target has no 8-byte xadd).
void BM_BEXOAtomicInt64_Add(benchmark::State& state) {
  for (auto _ : state) g_bexo64 += 1;
}
void BM_StdAtomicInt64_FetchAdd(benchmark::State& state) {
  for (auto _ : state) g_std64.fetch_add(1);
}

void BM_BEXOHiResTmr_Scope(benchmark::State& state) {
  static BEXOAtomicInt64 total, count;
  for (auto _ : state) {
    BEXOHiResTmr timer(total, count, true);
  }
}
void BM_SteadyClock_Scope(benchmark::State& state) {
  static std::atomic<int64_t> total{0}, count{0};
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    total += (std::chrono::steady_clock::now() - start).count();
    ++count;
  }
}

// Each figure beside its peer, alone and with two threads contending.
#define CONTENDED(name) BENCHMARK(name)->MinTime(0.2)->Threads(1)->Threads(2)
CONTENDED(BM_BEXOAtomicInt32_Add);
CONTENDED(BM_BEXOAtomicInt32_IncRet);
CONTENDED(BM_StdAtomicInt32_FetchAdd);
CONTENDED(BM_BEXOAtomicInt32_MultiplyCasLoop);
CONTENDED(BM_StdAtomicInt32_MultiplyCasLoop);
CONTENDED(BM_BEXOAtomicInt64_Add);
CONTENDED(BM_StdAtomicInt64_FetchAdd);
BENCHMARK(BM_BEXOHiResTmr_Scope)->MinTime(0.2);
BENCHMARK(BM_SteadyClock_Scope)->MinTime(0.2);

}  // namespace

BENCHMARK_MAIN();
