// bexo metrics: CPU busy shares over an interval (machine, per CPU, own
// processes), memory and swap, the mounted file systems as df shows them,
// and the own disk use under a path; as text or one JSON object per report.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include "command.h"
#include "metrics.h"
#include "product_path.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo metrics [--interval S] [--count N] [--json] [--path PATH]\n"
    "  --interval S  seconds between the two CPU samples of a report (default 1)\n"
    "  --count N     number of reports (default 1)\n"
    "  --json        one JSON object per report and line\n"
    "  --path PATH   directory whose own disk use is shown (default /etc/kvelo/postgres)";

constexpr unsigned long kMaxCpus = 1024;

struct Options {
  double interval = 1;
  unsigned long count = 1;
  bool json = false;
  std::string path;
};

struct CpuSample {
  unsigned long long own = 0, busy = 0, total = 0;
  std::vector<MetricCpuUtilization> cpus = std::vector<MetricCpuUtilization>(kMaxCpus);
};

struct Report {
  double busy = 0, own = 0;
  std::vector<double> per_cpu;
  unsigned long mem_used = 0, mem_total = 0, mem_own = 0, swap_used = 0, swap_total = 0;
  std::vector<MetricFileSystemInfo> file_systems;
  std::vector<char> file_system_strings;  // what file_systems point into
  unsigned long long disk_own = 0;
};

bool ParseOptions(int argc, char** argv, Options& options) {
  options.path = bexo::ProductPath("/etc/kvelo/postgres");
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool has_value = i + 1 < argc;
    char* end = nullptr;
    if (arg == "--json") {
      options.json = true;
    } else if (arg == "--interval" && has_value) {
      options.interval = strtod(argv[++i], &end);
      if (*end != '\0' || !(options.interval > 0 && options.interval <= 86400)) return false;
    } else if (arg == "--count" && has_value) {
      options.count = strtoul(argv[++i], &end, 10);
      if (*end != '\0' || argv[i][0] == '-' || options.count == 0) return false;
    } else if (arg == "--path" && has_value) {
      options.path = argv[++i];
    } else {
      return false;
    }
  }
  return true;
}

bool SampleCpu(CpuSample& sample) {
  return MetricGetCpuUtilization(sample.own, sample.busy, sample.total) &&
         MetricGetCpuUtilization(kMaxCpus, sample.cpus.data());
}

double Share(unsigned long long part_before, unsigned long long part_after,
             unsigned long long total_before, unsigned long long total_after) {
  if (total_after <= total_before) return 0;
  return 100.0 * static_cast<double>(part_after - part_before) /
         static_cast<double>(total_after - total_before);
}

void Sleep(double seconds) {
  struct timespec wait;
  wait.tv_sec = static_cast<time_t>(seconds);
  wait.tv_nsec = static_cast<long>((seconds - static_cast<double>(wait.tv_sec)) * 1e9);
  while (nanosleep(&wait, &wait) != 0) {
  }
}

bool ReadFileSystems(Report& report) {
  unsigned int size = 0;
  for (int attempt = 0; attempt < 5; ++attempt) {
    report.file_system_strings.assign(size, 0);
    auto* records = reinterpret_cast<MetricFileSystemInfo*>(report.file_system_strings.data());
    const int count = MetricEnumFileSystems(&size, size ? records : nullptr);
    if (count < 0) return false;
    if (count > 0 || size == 0) {
      report.file_systems.assign(records, records + count);
      return true;
    }
  }
  return false;  // the mount table kept growing
}

bool TakeReport(const Options& options, Report& report) {
  CpuSample before, after;
  if (!SampleCpu(before)) return false;
  Sleep(options.interval);
  if (!SampleCpu(after)) return false;
  report.busy = Share(before.busy, after.busy, before.total, after.total);
  report.own = Share(before.own, after.own, before.total, after.total);
  unsigned long cpus = 0;
  for (unsigned long i = 0; i < kMaxCpus; ++i) {
    if (after.cpus[i].total > 0) cpus = i + 1;
  }
  // Per-CPU counters are 32-bit sums: their differences are taken modulo 2^32.
  for (unsigned long i = 0; i < cpus; ++i) {
    const uint32_t busy = static_cast<uint32_t>(after.cpus[i].busy - before.cpus[i].busy);
    const uint32_t total = static_cast<uint32_t>(after.cpus[i].total - before.cpus[i].total);
    report.per_cpu.push_back(Share(0, busy, 0, total));
  }
  unsigned long used_again, total_again;
  unsigned long long fs_used, fs_total;
  return MetricGetMemAndSwapUtilization(report.mem_used, report.mem_total, report.swap_used,
                                        report.swap_total) &&
         MetricGetMemoryUtilization(report.mem_own, used_again, total_again) &&
         ReadFileSystems(report) &&
         MetricGetFileSystemUtilization(options.path.c_str(), report.disk_own, fs_used, fs_total);
}

std::string JsonString(const char* text) {
  std::string out = "\"";
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    if (*p == '"' || *p == '\\') {
      out += '\\';
      out += static_cast<char>(*p);
    } else if (*p < 0x20) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", *p);
      out += escape;
    } else {
      out += static_cast<char>(*p);
    }
  }
  return out + "\"";
}

void PrintJson(const Options& options, const Report& r) {
  printf("{\"cpu\":{\"busy_percent\":%.1f,\"own_percent\":%.1f,\"per_cpu_percent\":[", r.busy,
         r.own);
  for (size_t i = 0; i < r.per_cpu.size(); ++i) printf("%s%.1f", i ? "," : "", r.per_cpu[i]);
  printf("]},\"memory\":{\"used_kb\":%lu,\"total_kb\":%lu,\"own_kb\":%lu},", r.mem_used,
         r.mem_total, r.mem_own);
  printf("\"swap\":{\"used_kb\":%lu,\"total_kb\":%lu},\"file_systems\":[", r.swap_used,
         r.swap_total);
  for (size_t i = 0; i < r.file_systems.size(); ++i) {
    const MetricFileSystemInfo& fs = r.file_systems[i];
    printf("%s{\"file_system\":%s,\"mount_point\":%s,\"total_kib\":%llu,\"used_kib\":%llu}",
           i ? "," : "", JsonString(fs.device).c_str(), JsonString(fs.mountPoint).c_str(),
           fs.total, fs.used);
  }
  printf("],\"disk\":{\"path\":%s,\"own_kib\":%llu}}\n", JsonString(options.path.c_str()).c_str(),
         r.disk_own);
}

void PrintText(const Options& options, const Report& r) {
  printf("cpu      %5.1f%% busy, own processes %.1f%%\n", r.busy, r.own);
  for (size_t i = 0; i < r.per_cpu.size(); ++i) printf("cpu%-5zu %5.1f%% busy\n", i, r.per_cpu[i]);
  printf("memory   %lu kB used of %lu kB, own processes %lu kB\n", r.mem_used, r.mem_total,
         r.mem_own);
  printf("swap     %lu kB used of %lu kB\n", r.swap_used, r.swap_total);
  printf("disk     %llu KiB owned under %s\n", r.disk_own, options.path.c_str());
  int width = 10;
  for (const MetricFileSystemInfo& fs : r.file_systems) {
    const int length = static_cast<int>(strlen(fs.device));
    if (length > width) width = length;
  }
  printf("%-*s %12s %12s %5s %s\n", width, "Filesystem", "1K-blocks", "Used", "Use%",
         "Mounted on");
  for (const MetricFileSystemInfo& fs : r.file_systems) {
    const unsigned long long percent = fs.total ? (fs.used * 100 + fs.total - 1) / fs.total : 0;
    printf("%-*s %12llu %12llu %4llu%% %s\n", width, fs.device, fs.total, fs.used, percent,
           fs.mountPoint);
  }
}

int RunMetrics(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, options)) return CommandError(kExitUsage, kUsage);
  for (unsigned long i = 0; i < options.count; ++i) {
    Report report;
    if (!TakeReport(options, report)) return CommandError(kExitFailure, "cannot read the metrics");
    if (options.json) {
      PrintJson(options, report);
    } else {
      if (i > 0) printf("\n");
      PrintText(options, report);
    }
    fflush(stdout);
  }
  return kExitOk;
}

}  // namespace

BEXO_COMMAND("metrics", "CPU, memory and disk use of the machine and of its own processes",
             RunMetrics);
