#include "ux_LOG_LogFiles.h"

#include <dirent.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace ux_log_files {
namespace {

constexpr int kSequenceDigits = 10;

}  // namespace

std::string BaseName(const char* name) {
  if (name == nullptr || *name == '\0') return kDefaultName;
  if (strchr(name, '/') != nullptr) return "";
  return name;
}

std::string ActivePath(const std::string& directory, const std::string& name) {
  return directory + "/" + name + ".log";
}

std::string LockPath(const std::string& directory, const std::string& name) {
  return directory + "/" + name + ".lock";
}

std::string RotatedPath(const std::string& directory, const std::string& name, int64_t sequence) {
  char number[32];
  snprintf(number, sizeof number, ".%0*" PRId64 ".log", kSequenceDigits, sequence);
  return directory + "/" + name + number;
}

std::vector<RotatedFile> ListRotated(const std::string& directory, const std::string& name) {
  std::vector<RotatedFile> files;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return files;
  const std::string prefix = name + ".";
  while (struct dirent* item = readdir(dir)) {
    const char* file = item->d_name;
    size_t length = strlen(file);
    if (length != prefix.size() + kSequenceDigits + 4 || strncmp(file, prefix.data(), prefix.size()) != 0 ||
        strcmp(file + length - 4, ".log") != 0) {
      continue;
    }
    int64_t sequence = 0;
    bool digits = true;
    for (const char* p = file + prefix.size(); p < file + length - 4; ++p) {
      if (*p < '0' || *p > '9') digits = false;
      sequence = sequence * 10 + (*p - '0');
    }
    if (digits) files.push_back({sequence, directory + "/" + file});
  }
  closedir(dir);
  std::sort(files.begin(), files.end(),
            [](const RotatedFile& a, const RotatedFile& b) { return a.sequence < b.sequence; });
  return files;
}

}  // namespace ux_log_files
