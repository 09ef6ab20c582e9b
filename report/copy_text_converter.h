// Turns report record lines into rows of PostgreSQL's COPY text format, so
// that every line a writer produced loads into its table as written:
// - a backslash is doubled, so "\N", "\." and "\t" in a field stay text and a
//   trailing backslash never escapes the tab after it;
// - a carriage return or NUL byte, which the format cannot carry raw, is
//   written as "\r" or "%00";
// - a multi-byte UTF-8 character cut by a field's width is dropped (the
//   writer's truncation meant to end the field there); any other byte that is
//   not valid UTF-8 is written as "%XX", the writers' own escape;
// - a line with fewer fields than the table has columns (the short violation
//   layout) is padded with NULLs; surplus fields stay in the last column,
//   joined by a tab;
// - a blank line is no record and gives no row.
//
// Thread safety: stateless; any thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <string_view>

namespace bexo_report {

// Appends the row of `line` (without its line feed) to `out`, ended by a line
// feed; false, with nothing appended, for a blank line.
bool AppendCopyRow(std::string_view line, int columns, std::string& out);

// Reads the record file `path` and hands the rows to `sink` in chunks of
// about 64 KiB. Returns the number of rows, or -1 when the file cannot be
// read, a line is longer than 1 MiB, or `sink` returns false.
int64_t ConvertRecordFile(const char* path, int columns,
                          const std::function<bool(const std::string& chunk)>& sink);

}  // namespace bexo_report
