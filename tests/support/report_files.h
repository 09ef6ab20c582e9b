// Test support for the report and event logs: listing a file family, today's
// dated event log file, splitting lines and fields.
#pragma once

#include <string>
#include <vector>

namespace bexo_test {

// Names (not paths) of the files in `dir` that start with `prefix`, sorted.
std::vector<std::string> ListFiles(const std::string& dir, const std::string& prefix);
// The concatenated content of every file of `dir` starting with `prefix`.
std::string ReadFamily(const std::string& dir, const std::string& prefix);
// Today's event log file `counter` of `real_prefix`: "<prefix>.YYYY.MM.DD.NNNN".
std::string DatedFile(const std::string& real_prefix, int counter);
// Lines of `text` without their line feeds; a last line without one is kept.
std::vector<std::string> SplitLines(const std::string& text);
std::vector<std::string> SplitFields(const std::string& line, char separator = '\t');

}  // namespace bexo_test
