// Feeds arbitrary file contents to the /proc parsers: the first byte chooses
// the file (stat, meminfo, <pid>/stat, <pid>/statm, mounts) and a size.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "metrics.h"
#include "proc_files.h"
#include "system/mount_table.h"
#include "system/proc_parsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t selector = data[0];
  // As ReadProcFile leaves it: at most 4095 bytes, NUL-terminated.
  char text[bexo::kProcReadMax + 1];
  const size_t length = size - 1 < bexo::kProcReadMax ? size - 1 : bexo::kProcReadMax;
  memcpy(text, data + 1, length);
  text[length] = '\0';

  switch (selector % 5) {
    case 0: {
      unsigned long long busy, total;
      bexo_metrics::ParseCpuTotals(text, busy, total);
      std::vector<MetricCpuUtilization> cpus(selector / 5);
      bexo_metrics::ParsePerCpu(text, cpus.size(), cpus.data());
      break;
    }
    case 1: {
      unsigned long value;
      for (const char* key : {"MemTotal:", "Cached:", "SwapFree:", "", "M"}) {
        getMeminfoParam(text, length, key, strlen(key), value);
      }
      break;
    }
    case 2:
      bexo_metrics::ParseProcessCpuTime(text);
      break;
    case 3:
      bexo_metrics::ParseProcessMemUsage(text);
      break;
    case 4: {
      FILE* table = fmemopen(const_cast<uint8_t*>(data + 1), size - 1, "r");
      if (table == nullptr) break;
      unsigned int buffer_size = (selector / 5u) * 8u;
      std::vector<char> buffer(buffer_size);
      bexo_metrics::EnumMountTable(table, &buffer_size,
                                   reinterpret_cast<MetricFileSystemInfo*>(buffer.data()));
      rewind(table);
      char mount_point[8192], device[8192];
      bexo_metrics::FindMountOnDevice(table, 0, mount_point, device);
      fclose(table);
      break;
    }
  }
  return 0;
}
