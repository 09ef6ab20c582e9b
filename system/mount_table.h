// Walks over a mount table in /proc/mounts form, for MetricEnumFileSystems and
// MetricGetMountInfo. The table is passed open so that any text can be fed in.
//
// Thread safety: reentrant.
#pragma once

#include <stdio.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include "metrics.h"

namespace bexo_metrics {

// KiB used and total of a statvfs result, counted in the preferred block
// size (f_bsize), not the fragment size.
void FileSystemSizes(const struct statvfs& fs, unsigned long long& used,
                     unsigned long long& total);

// The record-and-strings fill of MetricEnumFileSystems over `table`.
int EnumMountTable(FILE* table, unsigned int* size, MetricFileSystemInfo* buffer);

// Copies the directory and file-system name of the first entry whose
// directory lies on `device`. False when none does.
bool FindMountOnDevice(FILE* table, dev_t device, char* mountPoint, char* fileSystem);

}  // namespace bexo_metrics
