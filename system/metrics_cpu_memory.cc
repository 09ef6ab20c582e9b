// CPU and memory counters of the machine and of the own processes.
#include <string.h>

#include "metrics.h"
#include "proc_files.h"
#include "system/own_processes.h"
#include "system/proc_parsers.h"

namespace {

using ProcText = char[bexo::kProcReadMax + 1];

bool ReadMeminfo(ProcText& text, size_t& length) {
  const ssize_t got = bexo::ReadProcFile("meminfo", text, sizeof text);
  if (got <= 0) return false;
  length = static_cast<size_t>(got);
  return true;
}

bool MeminfoValue(const ProcText& text, size_t length, const char* key, unsigned long& value) {
  return getMeminfoParam(text, length, key, strlen(key), value);
}

bool ReadMemory(const ProcText& text, size_t length, unsigned long& used, unsigned long& total) {
  unsigned long mem_total, mem_free, buffers, cached;
  if (!MeminfoValue(text, length, "MemTotal:", mem_total) ||
      !MeminfoValue(text, length, "MemFree:", mem_free) ||
      !MeminfoValue(text, length, "Buffers:", buffers) ||
      !MeminfoValue(text, length, "Cached:", cached)) {
    return false;
  }
  used = mem_total - mem_free - buffers - cached;
  total = mem_total;
  return true;
}

}  // namespace

bool MetricGetCpuUtilization(unsigned long long& busy, unsigned long long& total) {
  busy = total = 0;
  ProcText text;
  if (bexo::ReadProcFile("stat", text, sizeof text) <= 0) return false;
  return bexo_metrics::ParseCpuTotals(text, busy, total);
}

bool MetricGetCpuUtilization(unsigned long long& own, unsigned long long& busy,
                             unsigned long long& total) {
  busy = total = 0;
  if (!bexo_metrics::SumOverOwnProcesses(own, getProcessCpuTime) ||
      !MetricGetCpuUtilization(busy, total)) {
    own = 0;
    return false;
  }
  return true;
}

bool MetricGetCpuUtilization(unsigned long count, MetricCpuUtilization* cpus) {
  if (cpus == nullptr) return false;
  memset(cpus, 0, count * sizeof *cpus);
  ProcText text;
  if (bexo::ReadProcFile("stat", text, sizeof text) <= 0) return false;
  return bexo_metrics::ParsePerCpu(text, count, cpus);
}

bool MetricGetMemoryUtilization(unsigned long& used, unsigned long& total) {
  used = total = 0;
  ProcText text;
  size_t length;
  if (!ReadMeminfo(text, length) || !ReadMemory(text, length, used, total)) {
    used = total = 0;
    return false;
  }
  return true;
}

bool MetricGetMemoryUtilization(unsigned long& own, unsigned long& used, unsigned long& total) {
  used = total = 0;
  if (!bexo_metrics::SumOverOwnProcesses(own, getProcessMemUsage) ||
      !MetricGetMemoryUtilization(used, total)) {
    own = 0;
    return false;
  }
  return true;
}

bool MetricGetMemAndSwapUtilization(unsigned long& memUsed, unsigned long& memTotal,
                                    unsigned long& swapUsed, unsigned long& swapTotal) {
  memUsed = memTotal = swapUsed = swapTotal = 0;
  ProcText text;
  size_t length;
  unsigned long swap_total, swap_free;
  if (!ReadMeminfo(text, length) || !ReadMemory(text, length, memUsed, memTotal) ||
      !MeminfoValue(text, length, "SwapTotal:", swap_total) ||
      !MeminfoValue(text, length, "SwapFree:", swap_free)) {
    memUsed = memTotal = 0;
    return false;
  }
  swapUsed = swap_total - swap_free;
  swapTotal = swap_total;
  return true;
}
