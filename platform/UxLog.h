// UxLog: the gateway's debug log. Callers guard each message with canLog so
// that formatting costs nothing when the level is off:
//
//   if (UxLog::canLog(1))
//     UxLog::writeLog3(1, "File.cpp", __LINE__, "Func", UxLog::LogStr("ERROR: %d", n));
//
// Levels run from 1 (errors and warnings) to 3 (information). The threshold
// and the file come from section "debug" of "/etc/kvelo/morvane.ini":
// "ux_log_level" (default 1) and "ux_log_file" (default
// "/var/bexo/log/bexo_debug.log"); when the file cannot be opened, lines go to
// stderr. Each message is one line: time, pid, tid, level, file:line,
// function, text.
//
// Thread safety: every function may be called from any thread; a line is
// written with one write(2), so lines of concurrent writers never mix.
#pragma once

#include <functional>
#include <string>

#include "bexo_export.h"

struct UxLogRecord {
  int level;
  const char* file;
  int line;
  const char* function;
  const std::string& text;
};

class BEXO_EXPORT UxLog {
 public:
  using Sink = std::function<void(const UxLogRecord&)>;

  static bool canLog(int level);
  static void writeLog3(int level, const char* file, int line, const char* function,
                        const std::string& text);
  static std::string LogStr(const char* format, ...) __attribute__((format(printf, 1, 2)));

  // Reads the threshold and file name from the configuration again.
  static void reloadConfig();
  static void setLevel(int level);
  static int level();

  // Test seam: while a sink is installed, messages go to it instead of the file.
  static void setSink(Sink sink);
};

// Shorthand for the guarded call above; `file` is the short source file name.
#define UX_LOG(level, file, function, ...)                                        \
  do {                                                                           \
    if (UxLog::canLog(level))                                                    \
      UxLog::writeLog3(level, file, __LINE__, function, UxLog::LogStr(__VA_ARGS__)); \
  } while (0)
