// The own-disk walk behind MetricGetFileSystemUtilization's `own` figure.
//
// Thread safety: reentrant; its two messages go to stdout.
#pragma once

#include <dirent.h>
#include <sys/types.h>

// Adds to `total` the KiB under `path` of entries owned by `uid`, each entry
// counting (allocated blocks / 2) / hard-link count, without following
// links. A directory that vanished or cannot be read counts as empty; any
// other failure prints "errno N" and ends the walk with false.
bool getProcessDiskUsage(const char* path, uid_t uid, unsigned long long& total);
