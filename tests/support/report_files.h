// Test support for the report logs: listing a file family, splitting lines
// and fields, and pointing the report configuration at a test root.
#pragma once

#include <string>
#include <vector>

namespace bexo_test {

// Names (not paths) of the files in `dir` that start with `prefix`, sorted.
std::vector<std::string> ListFiles(const std::string& dir, const std::string& prefix);
// The concatenated content of every file of `dir` starting with `prefix`.
std::string ReadFamily(const std::string& dir, const std::string& prefix);
// Lines of `text` without their line feeds; a last line without one is kept.
std::vector<std::string> SplitLines(const std::string& text);
std::vector<std::string> SplitFields(const std::string& line, char separator = '\t');

}  // namespace bexo_test
