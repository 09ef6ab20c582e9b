#include "report_files.h"

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

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> SplitFields(const std::string& line, char separator) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (true) {
    size_t end = line.find(separator, start);
    fields.push_back(line.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return fields;
}

}  // namespace bexo_test
