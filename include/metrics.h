// System metrics: raw CPU, memory and disk counters of the machine and of the
// gateway's own processes (every process whose /proc/<pid> directory belongs
// to the caller's real user id), read from /proc and statvfs. Callers compute
// rates by sampling twice.
//
// Units: memory in kB as /proc/meminfo gives them, disk in KiB, CPU in clock
// ticks. Every function zeroes its outputs first and returns false (or -1)
// on failure. Nothing is logged; the own-disk walk alone prints to stdout.
//
// Thread safety: all functions are reentrant.
#pragma once

#include "bexo_export.h"

// One CPU's counters, in clock ticks.
struct MetricCpuUtilization {
  unsigned long long total;  // the first eight counters of its /proc/stat line
  unsigned long long busy;   // total minus idle
};

// One mounted file system; the strings point into the caller's buffer.
struct MetricFileSystemInfo {
  char* mountPoint;
  char* device;  // the file-system name of the mount table ("/dev/sda1", "tmpfs")
  unsigned long long used;   // KiB
  unsigned long long total;  // KiB
};

// Machine-wide CPU from the "cpu " line of /proc/stat.
BEXO_EXPORT bool MetricGetCpuUtilization(unsigned long long& busy, unsigned long long& total);

// `own`: utime + stime summed over own processes; then the machine-wide form.
BEXO_EXPORT bool MetricGetCpuUtilization(unsigned long long& own, unsigned long long& busy,
                                         unsigned long long& total);

// Per CPU: entry N receives the "cpuN" line for N < count. The sums are taken
// in 32 bits, as the gateway always has. True when one line was stored.
BEXO_EXPORT bool MetricGetCpuUtilization(unsigned long count, MetricCpuUtilization* cpus);

// used = MemTotal - MemFree - Buffers - Cached; total = MemTotal (kB).
BEXO_EXPORT bool MetricGetMemoryUtilization(unsigned long& used, unsigned long& total);

// `own`: (resident - shared) pages x 4 kB summed over own processes.
BEXO_EXPORT bool MetricGetMemoryUtilization(unsigned long& own, unsigned long& used,
                                            unsigned long& total);

// Memory as above; swapUsed = SwapTotal - SwapFree; swapTotal = SwapTotal.
BEXO_EXPORT bool MetricGetMemAndSwapUtilization(unsigned long& memUsed, unsigned long& memTotal,
                                                unsigned long& swapUsed,
                                                unsigned long& swapTotal);

// The file system holding `path`, in KiB of its preferred block size. A
// missing path gives true and zeros.
BEXO_EXPORT bool MetricGetFileSystemUtilization(const char* path, unsigned long long& used,
                                                unsigned long long& total);

// As above, plus `own`: the KiB of the files under `path` owned by the caller's
// user id, a file with several hard links shared out among them.
BEXO_EXPORT bool MetricGetFileSystemUtilization(const char* path, unsigned long long& own,
                                                unsigned long long& used,
                                                unsigned long long& total);

// The database directory "/etc/kvelo/postgres": what it holds, and what it
// holds plus the free space of its file system (KiB).
BEXO_EXPORT bool MetricGetDBUtilization(unsigned long long& dbUsed,
                                        unsigned long long& dbAvailable);

// The first mount whose directory is on the same device as `path`: its
// directory and file-system name. The buffers must be large enough.
BEXO_EXPORT bool MetricGetMountInfo(const char* path, char* mountPoint, char* device);

// Fills `buffer` (`*size` bytes) with records from its front and their strings
// from its end. Returns the number of records; 0 when the buffer was too small,
// with the size needed in `*size`; -1 on failure.
BEXO_EXPORT int MetricEnumFileSystems(unsigned int* size, MetricFileSystemInfo* buffer);
