// Parsers of the /proc texts the metrics read: "stat", "meminfo" and the
// per-process "<pid>/stat" and "<pid>/statm". Each takes a NUL-terminated
// buffer as one read of the file left it (at most 4095 bytes).
//
// Thread safety: pure functions.
#pragma once

#include <stddef.h>

#include "metrics.h"

namespace bexo_metrics {

// The "cpu " line at the very start of /proc/stat: total = the eight first
// counters summed in 64 bits, busy = total - idle. False when the text does
// not begin with "cpu " or a number is malformed.
bool ParseCpuTotals(const char* text, unsigned long long& busy, unsigned long long& total);

// Every "cpuN" line with N < count: eight counters taken and summed in 32
// bits (uint32_t, wrapping), stored in cpus[N]. Stops at the first malformed
// number. True when at least one line was stored. The caller zeroes `cpus`.
bool ParsePerCpu(const char* text, unsigned long count, MetricCpuUtilization* cpus);

// utime + stime: fields 14 and 15 of a "<pid>/stat" text split at single spaces.
unsigned long long ParseProcessCpuTime(const char* text);

// (resident - shared) x 4: a 4 KiB page is assumed, never queried.
unsigned long ParseProcessMemUsage(const char* text);

}  // namespace bexo_metrics

// Finds `key` (compared over `keyLength` bytes) at a line start within the
// first `length` bytes of `buffer` and reads the decimal number after it.
bool getMeminfoParam(const char* buffer, size_t length, const char* key, size_t keyLength,
                     unsigned long& value);
