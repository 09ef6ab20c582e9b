#include "dir_names.h"

#include <algorithm>
#include <filesystem>

namespace bexo_test {

std::vector<std::string> DirNames(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace bexo_test
