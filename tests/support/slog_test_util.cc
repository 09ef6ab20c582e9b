#include "slog_test_util.h"

#include <gtest/gtest.h>

#include "temp_root.h"
#include "ux_LOG_LogFiles.h"
#include "ux_LOG_TextLogCursor.h"

namespace bexo_test {
namespace {

}  // namespace

std::vector<ux_LOG_LogEntry> ReadLog(const std::string& dir, const std::string& name,
                                     uint64_t* damaged) {
  ux_LOG_TextLogCursor cursor(dir.c_str(), name.c_str(), 0, true);
  std::vector<ux_LOG_LogEntry> entries;
  ux_LOG_LogEntry entry;
  while (cursor.Next(entry)) entries.push_back(entry);
  if (damaged) *damaged = cursor.GetDamagedCount();
  return entries;
}

std::string LogFiles(const std::string& dir, const std::string& name) {
  std::string files;
  for (const auto& file : ux_log_files::ListRotated(dir, name)) files += file.path + " ";
  return files + ux_log_files::ActivePath(dir, name);
}

std::string Jq(const std::string& filter, const std::string& files) {
  std::string output;
  EXPECT_EQ(RunCommand("jq -c '" + filter + "' " + files, &output), 0) << filter;
  return output;
}

}  // namespace bexo_test
