#include "report_files.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <filesystem>

#include "temp_root.h"

namespace bexo_test {

std::vector<std::string> ListFiles(const std::string& dir, const std::string& prefix) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    std::string name = entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadFamily(const std::string& dir, const std::string& prefix) {
  std::string content;
  for (const auto& name : ListFiles(dir, prefix)) content += ReadFile(dir + "/" + name);
  return content;
}

std::string DatedFile(const std::string& real_prefix, int counter) {
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char suffix[40];
  snprintf(suffix, sizeof suffix, ".%04d.%02d.%02d.%04d", local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, counter);
  return real_prefix + suffix;
}

std::vector<std::string> SplitFields(const std::string& line, char separator) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (size_t end; (end = line.find(separator, start)) != std::string::npos; start = end + 1) {
    fields.push_back(line.substr(start, end - start));
  }
  fields.push_back(line.substr(start));
  return fields;
}

std::vector<std::string> SplitLines(const std::string& text) {
  if (text.empty()) return {};
  std::vector<std::string> lines = SplitFields(text, '\n');
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

}  // namespace bexo_test
