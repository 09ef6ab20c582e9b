// Test support: the entries of a directory.
#pragma once

#include <string>
#include <vector>

namespace bexo_test {

// Names in `dir` (without "." and ".."), sorted.
std::vector<std::string> DirNames(const std::string& dir);

}  // namespace bexo_test
