// bexo slog: print a structured log oldest entry first, write a line into one
// through the system debug log writer, and read one as the central
// management's collector does, from its bookmark.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <inttypes.h>

#include <string>

#include "CM_log_writer_and_reader.h"
#include "command.h"
#include "sys_log_writer.h"
#include "ux_EXCEPTION_base.h"
#include "ux_LOG_EntryJson.h"
#include "ux_LOG_TextLogCursor.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo slog cat DIR NAME [--json] [--follow]\n"
    "           print the entries oldest first, one line each (attributes as\n"
    "           key=value, or the JSON line); --follow waits for new ones\n"
    "       bexo slog write DIR NAME TEXT...\n"
    "           write each TEXT as one entry through the system debug log writer\n"
    "       bexo slog read DIR NAME [--step N] [--bookmark]\n"
    "           deliver the entries after the bookmark NAME.bmk as a collector does\n"
    "           (saving the bookmark every N entries, default 100); --bookmark only\n"
    "           shows where the next read would resume";

int Usage() { return CommandError(kExitUsage, kUsage); }

// A value as key=value text: bare when it is one plain word, else quoted.
std::string Quoted(const std::string& text) {
  if (!text.empty() && text.find_first_of(" \t\"\\=") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string Line(const ux_LOG_LogEntry& entry, bool json) {
  std::string line;
  ux_LOG_EncodeEntry(entry, &line);  // ends in a line feed
  if (json) return line;
  // The time is the first value of the JSON text: "{"time":"...",
  std::string text = line.substr(9, line.find('"', 9) - 9);
  text += " kind=" + std::to_string(entry.GetKind()) + " id=" + std::to_string(entry.GetEntryID()) +
          " level=" + std::to_string(entry.GetLogLevel());
  for (const ux_LOG_Attrib& attrib : entry.GetAttribs()) {
    text += " " + attrib.name + "=";
    text += attrib.type == ux_LOG_AttribType::kString ? Quoted(attrib.text)
                                                      : std::to_string(attrib.number);
  }
  return text + "\n";
}

int Cat(int argc, char** argv) {
  bool json = false, follow = false;
  const char* operands[2];
  int count = 0;
  for (int i = 2; i < argc; ++i) {
    if (strcmp(argv[i], "--json") == 0) {
      json = true;
    } else if (strcmp(argv[i], "--follow") == 0) {
      follow = true;
    } else if (argv[i][0] == '-' || count == 2) {
      return Usage();
    } else {
      operands[count++] = argv[i];
    }
  }
  if (count != 2) return Usage();
  try {
    ux_LOG_TextLogCursor cursor(operands[0], operands[1], 0, true);
    ux_LOG_LogEntry entry;
    for (;;) {
      while (cursor.Next(entry)) fputs(Line(entry, json).c_str(), stdout);
      if (!follow) break;
      fflush(stdout);
      struct timespec pause = {0, 200 * 1000 * 1000};
      nanosleep(&pause, nullptr);
    }
    if (cursor.GetDamagedCount() > 0) {
      fprintf(stderr, "bexo: %" PRIu64 " damaged line(s) skipped\n", cursor.GetDamagedCount());
    }
  } catch (const ux_EXCEPTION_base& e) {
    return CommandError(kExitFailure, e.get_message());
  }
  return kExitOk;
}

int Write(int argc, char** argv) {
  if (argc < 5) return Usage();
  // When the log cannot be opened the writer prints each line on standard
  // output instead, as it does in the daemons.
  sys_log_writer writer(argv[3], argv[2], nullptr);
  for (int i = 4; i < argc; ++i) writer.log(argv[i]);
  return kExitOk;
}

int Read(int argc, char** argv) {
  bool only_bookmark = false;
  int step = 100;
  const char* operands[2];
  int count = 0;
  for (int i = 2; i < argc; ++i) {
    if (strcmp(argv[i], "--bookmark") == 0) {
      only_bookmark = true;
    } else if (strcmp(argv[i], "--step") == 0 && i + 1 < argc) {
      char* end = nullptr;
      long value = strtol(argv[++i], &end, 10);
      if (*end != '\0' || value < 1 || value > 1000000) return Usage();
      step = static_cast<int>(value);
    } else if (argv[i][0] == '-' || count == 2) {
      return Usage();
    } else {
      operands[count++] = argv[i];
    }
  }
  if (count != 2) return Usage();
  if (only_bookmark) {
    // Where a collector resumes: the saved count of entries it skips.
    CM_log_reader reader(nullptr, operands[0], operands[1], operands[1], step, 0);
    if (!reader.ready()) return CommandError(kExitFailure, "cannot open the log");
    FILE* file = fopen(reader.bookmark_path().c_str(), "r");
    int saved = 0;
    if (file != nullptr) {
      if (fscanf(file, "%d", &saved) != 1) saved = 0;
      fclose(file);
    }
    ux_LOG_TextLogCursor cursor(operands[0], operands[1], 0, true);
    ux_LOG_LogEntry entry;
    int total = 0;
    std::string resume;
    while (cursor.Next(entry)) {
      if (total++ == saved) resume = Line(entry, false);
    }
    printf("bookmark %s: %d\n", reader.bookmark_path().c_str(), saved);
    if (resume.empty()) {
      printf("resumes after the last of %d entries\n", total);
    } else {
      printf("resumes at entry %d of %d: %s", saved + 1, total, resume.c_str());
    }
    return kExitOk;
  }
  CM_log_reader reader(nullptr, operands[0], operands[1], operands[1], step, 0);
  if (!reader.ready()) return CommandError(kExitFailure, "cannot open the log");
  ux_LOG_LogEntry entry;
  while (reader.next(entry) == 1) fputs(Line(entry, false).c_str(), stdout);
  return kExitOk;
}

int Slog(int argc, char** argv) {
  if (argc < 2) return Usage();
  std::string verb = argv[1];
  if (verb == "cat") return Cat(argc, argv);
  if (verb == "write") return Write(argc, argv);
  if (verb == "read") return Read(argc, argv);
  return Usage();
}

}  // namespace

BEXO_COMMAND("slog", "structured logs: cat, write, read from a bookmark", Slog);
