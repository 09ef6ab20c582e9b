// Test support for the structured logs: read a log back through the cursor,
// list its files in reading order, run jq over them.
#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "fake_wall_clock.h"
#include "ux_LOG_LogEntry.h"

namespace bexo_test {

// Every entry of log NAME in DIR (a real path), oldest first.
std::vector<ux_LOG_LogEntry> ReadLog(const std::string& dir, const std::string& name,
                                     uint64_t* damaged = nullptr);

// The log's files, rotated ones oldest first and then the active one,
// separated by blanks (for a shell command line).
std::string LogFiles(const std::string& dir, const std::string& name);

// `jq -c FILTER` over the log's files; its exit status must be 0.
std::string Jq(const std::string& filter, const std::string& files);

}  // namespace bexo_test
