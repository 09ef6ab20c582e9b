// Test helpers for the event log tests: today's file names and directory
// listings. Header-only; used by tests only.
#pragma once

#include <dirent.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

namespace bexo_eventlog_test {

// Today's output file `counter` of `real_prefix`: "<prefix>.YYYY.MM.DD.NNNN".
inline std::string DatedFile(const std::string& real_prefix, int counter) {
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char suffix[40];
  snprintf(suffix, sizeof suffix, ".%04d.%02d.%02d.%04d", local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, counter);
  return real_prefix + suffix;
}

// The paths of the entries of `dir` whose names begin with `start`, sorted.
inline std::vector<std::string> FilesStartingWith(const std::string& dir, const std::string& start) {
  std::vector<std::string> paths;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      if (std::string(e->d_name).rfind(start, 0) == 0) paths.push_back(dir + "/" + e->d_name);
    }
    closedir(d);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace bexo_eventlog_test
