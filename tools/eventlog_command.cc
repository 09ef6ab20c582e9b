// bexo eventlog: write lines into an event log's dated files, see which of
// today's files a log appends to, and check the localized timestamp.
//
// A running daemon's buffer lives in a private segment that only its forked
// workers share, so this command cannot reach it; it writes through its own
// buffer under the same lock file and naming rules, so its lines land in the
// file the daemon would append to next.
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "EventLogBase.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo eventlog write [--lock FILE] [--max-size BYTES] PREFIX [TEXT...]\n"
    "           append each TEXT (or each line of stdin) as one line to today's file\n"
    "       bexo eventlog files [--max-size BYTES] PREFIX\n"
    "           list today's files with their sizes; '*' marks the one written next\n"
    "       bexo eventlog timestamp [LANGUAGE]\n"
    "           print the current time as the event logs stamp it";

constexpr char kDefaultLock[] = "/var/bexo/EVENTLOG.LOCK";
constexpr char kLogName[] = "bexo";

int Usage() { return CommandError(kExitUsage, kUsage); }

struct Options {
  const char* lock = kDefaultLock;
  long long max_size = BEXOEventLogBase::kDefaultMaxFileSize;
  std::vector<const char*> operands;
};

// Options may come before and between the operands. False on a bad one.
bool ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if ((arg == "--lock" || arg == "--max-size") && i + 1 < argc) {
      const char* value = argv[++i];
      if (arg == "--lock") {
        options.lock = value;
        continue;
      }
      long long parsed = 0;
      if (!ParseWholeNumber(value, 1, 0x7fffffff, &parsed)) return false;
      options.max_size = parsed;
    } else if (arg.rfind("--", 0) == 0) {
      return false;
    } else {
      options.operands.push_back(argv[i]);
    }
  }
  return true;
}

// A log in mode 2 (text file only); `buffered` gives it its own buffer.
bool OpenLog(BEXOEventLogBase& log, const Options& options, const char* prefix, bool buffered) {
  if (log.Initialize(buffered, 0, prefix, 2, "en", false, static_cast<int>(options.max_size)) != 0) {
    CommandError(kExitFailure, "cannot set up the event log (see the debug log)");
    return false;
  }
  return true;
}

int WriteLine(BEXOEventLogBase& log, std::string line) {
  if (line.empty() || line.back() != '\n') line += '\n';
  if (log.WriteMemoryLog(line.data(), static_cast<unsigned>(line.size())) != 1) {
    return CommandError(kExitFailure, "cannot write to the event log (see the debug log)");
  }
  return kExitOk;
}

int Write(const Options& options) {
  if (options.operands.empty()) return Usage();
  const char* prefix = options.operands[0];
  BEXOEventLogBase log(options.lock, kLogName);
  if (!OpenLog(log, options, prefix, true)) return kExitFailure;
  if (options.operands.size() > 1) {
    for (size_t i = 1; i < options.operands.size(); ++i) {
      if (WriteLine(log, options.operands[i]) != kExitOk) return kExitFailure;
    }
  } else {
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length;
    while ((length = getline(&line, &capacity, stdin)) > 0) {
      if (WriteLine(log, std::string(line, length)) != kExitOk) {
        free(line);
        return kExitFailure;
      }
    }
    free(line);
  }
  char name[1024];
  log.GetOutputFileName(name, sizeof name);
  if (log.Flush() != 1) return CommandError(kExitFailure, std::string("cannot write ") + name);
  printf("%s\n", name);
  return kExitOk;
}

int Files(const Options& options) {
  if (options.operands.size() != 1) return Usage();
  BEXOEventLogBase log(options.lock, kLogName);
  if (!OpenLog(log, options, options.operands[0], false)) return kExitFailure;
  char next[1024];
  log.GetOutputFileName(next, sizeof next);
  // "<dir>/<base>.YYYY.MM.DD.NNNN": today's files share all but the counter.
  std::string current = next;
  size_t slash = current.rfind('/');
  std::string dir = slash == std::string::npos ? "." : current.substr(0, slash);
  std::string start = current.substr(slash == std::string::npos ? 0 : slash + 1);
  if (start.size() < 4) return CommandError(kExitFailure, "file prefix too long");
  start.resize(start.size() - 4);
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name.size() >= start.size() + 4 && name.rfind(start, 0) == 0 &&
          name.find_first_not_of("0123456789", start.size()) == std::string::npos) {
        names.push_back(name);
      }
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  bool listed_next = false;
  for (const std::string& name : names) {
    std::string path = dir + "/" + name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) continue;
    bool is_next = path == current;
    listed_next |= is_next;
    printf("%c %12lld  %s\n", is_next ? '*' : ' ', static_cast<long long>(st.st_size), path.c_str());
  }
  if (!listed_next) printf("* %12s  %s\n", "(new)", current.c_str());
  return kExitOk;
}

int Timestamp(const Options& options) {
  if (options.operands.size() > 1) return Usage();
  BEXOEventLogBase log(options.lock, kLogName);
  if (log.PrepareICU(options.operands.empty() ? "en" : options.operands[0]) != 0) {
    return CommandError(kExitFailure, "cannot create the date format (see the debug log)");
  }
  char stamp[256];
  log.GetLocalizedTimestamp(stamp, sizeof stamp);
  printf("%s\n", stamp);
  return kExitOk;
}

int RunEventLog(int argc, char** argv) {
  if (argc < 2) return Usage();
  Options options;
  if (!ParseOptions(argc, argv, options)) return Usage();
  std::string verb = argv[1];
  if (verb == "write") return Write(options);
  if (verb == "files") return Files(options);
  if (verb == "timestamp") return Timestamp(options);
  return Usage();
}

}  // namespace

BEXO_COMMAND("eventlog", "write to and inspect event log files (write, files, timestamp)",
             RunEventLog);
