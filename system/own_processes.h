// The gateway's own processes: the /proc/<pid> directories that belong to the
// caller's real user id, and the per-process figures the metrics add up.
//
// Thread safety: reentrant.
#pragma once

#include <dirent.h>

// True when the entry's name is all digits and "/proc/<name>" (at most 10
// name characters) is a directory owned by getuid().
bool isMyProcessDirent(const dirent* entry);

// utime + stime of "/proc/<pid>/stat"; 0 when it cannot be read.
unsigned long long getProcessCpuTime(const char* pid);

// (resident - shared) x 4 kB of "/proc/<pid>/statm"; 0 when it cannot be read.
unsigned long getProcessMemUsage(const char* pid);

namespace bexo_metrics {

// Calls visit(pid, context) for each own process. False when /proc cannot
// be opened.
bool ForEachOwnProcess(void (*visit)(const char* pid, void* context), void* context);

// Sets `sum` to figure(pid) added up over the own processes.
template <typename Sum, typename Figure>
bool SumOverOwnProcesses(Sum& sum, Figure figure) {
  sum = 0;
  struct Adder {
    Sum* sum;
    Figure figure;
  } adder{&sum, figure};
  return ForEachOwnProcess(
      [](const char* pid, void* context) {
        Adder* a = static_cast<Adder*>(context);
        *a->sum += a->figure(pid);
      },
      &adder);
}

}  // namespace bexo_metrics
