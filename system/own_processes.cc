#include "system/own_processes.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "proc_files.h"
#include "system/proc_parsers.h"

namespace {

// One read of a per-process file: "<pid>/<name>".
bool ReadProcessFile(const char* pid, const char* name, char* buffer, size_t size) {
  char relative[64];
  snprintf(relative, sizeof relative, "%.10s/%s", pid, name);
  return bexo::ReadProcFile(relative, buffer, size) > 0;
}

}  // namespace

bool isMyProcessDirent(const dirent* entry) {
  const char* name = entry->d_name;
  if (name[0] == '\0') return false;
  for (const char* p = name; *p != '\0'; ++p) {
    if (*p < '0' || *p > '9') return false;
  }
  char relative[16];
  snprintf(relative, sizeof relative, "%.10s", name);
  struct stat st;
  if (bexo::StatProcEntry(relative, &st) != 0) return false;
  return S_ISDIR(st.st_mode) && st.st_uid == getuid();
}

unsigned long long getProcessCpuTime(const char* pid) {
  char text[bexo::kProcReadMax + 1];
  if (!ReadProcessFile(pid, "stat", text, sizeof text)) return 0;
  return bexo_metrics::ParseProcessCpuTime(text);
}

unsigned long getProcessMemUsage(const char* pid) {
  char text[bexo::kProcReadMax + 1];
  if (!ReadProcessFile(pid, "statm", text, sizeof text)) return 0;
  return bexo_metrics::ParseProcessMemUsage(text);
}

namespace bexo_metrics {

bool ForEachOwnProcess(void (*visit)(const char* pid, void* context), void* context) {
  DIR* dir = bexo::OpenProcDirectory();
  if (dir == nullptr) return false;
  while (const dirent* entry = readdir(dir)) {
    if (isMyProcessDirent(entry)) visit(entry->d_name, context);
  }
  closedir(dir);
  return true;
}

}  // namespace bexo_metrics
