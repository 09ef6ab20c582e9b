// bexo report: write report records from the shell, flush, and read the
// newest records of a kind as a table.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "LogQueue.h"
#include "Report_Log_Read_Write.h"
#include "command.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo report write KIND FIELD...   write one record (fields as in 'bexo report kinds')\n"
    "       bexo report write KIND -          one record per tab-separated line of standard input\n"
    "       bexo report flush                 flush this process's queues (checks the files can be written)\n"
    "       bexo report tail FAMILY [-n N]    the newest N records (default 10) of a family, as a table\n"
    "       bexo report kinds                 list the record kinds and their fields";

using Args = std::vector<std::string>;
using Writer = int (*)(Report_Log_Read_Write&, const Args&);

const char* S(const Args& a, size_t i) { return a[i].c_str(); }
int I(const Args& a, size_t i) { return static_cast<int>(strtol(a[i].c_str(), nullptr, 10)); }
long long L(const Args& a, size_t i) { return strtoll(a[i].c_str(), nullptr, 10); }
unsigned U(const Args& a, size_t i) { return static_cast<unsigned>(strtoul(a[i].c_str(), nullptr, 10)); }

// The access information of the "-info" kinds, from argument `at` on.
report_access_info Info(const Args& a, size_t at) {
  report_access_info info;
  info.size = L(a, at);
  info.text1 = S(a, at + 1);
  info.text2 = S(a, at + 2);
  info.text3 = S(a, at + 3);
  info.text5 = S(a, at + 4);
  info.number1 = I(a, at + 5);
  info.number2 = I(a, at + 6);
  info.number3 = I(a, at + 7);
  return info;
}

bot_log_entry Bot(const Args& a, bool with_filter_action) {
  bot_log_entry e;
  e.user = S(a, 0), e.protocol = S(a, 1), e.host = S(a, 2), e.port = I(a, 3), e.path = S(a, 4);
  e.entity_name = S(a, 5), e.action = S(a, 6), e.scan_type = S(a, 7), e.rule_name = S(a, 8);
  e.group_name = S(a, 9), e.uid = S(a, 10);
  if (with_filter_action) e.filter_action = I(a, 11);
  return e;
}

#define REQUEST "user protocol host port path "
#define INFO " size text1 text2 text3 text5 number1 number2 number3"

struct Kind {
  const char* name;
  const char* fields;
  Writer write;
};

const Kind kKinds[] = {
    {"access", REQUEST "size mime_type server client_ip server_ip operation uid category category_type "
                       "elapsed_ms category_names extra",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteAccessLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), L(a, 5), S(a, 6), S(a, 7), S(a, 8),
                               S(a, 9), S(a, 10), S(a, 11), I(a, 12), I(a, 13), I(a, 14), S(a, 15), S(a, 16));
     }},
    {"virus", REQUEST "malicious_entity entity_name action scan_type blocked_by rule_name rule_id group "
                      "category uid filter_action",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteVirusLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7), S(a, 8),
                              S(a, 9), S(a, 10), I(a, 11), S(a, 12), S(a, 13), S(a, 14), I(a, 15));
     }},
    {"virus-info", REQUEST "malicious_entity entity_name action scan_type blocked_by rule_name rule_id group "
                           "category uid" INFO,
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteVirusLogWithAccessInfo(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7),
                                            S(a, 8), S(a, 9), S(a, 10), I(a, 11), S(a, 12), S(a, 13), S(a, 14),
                                            Info(a, 15));
     }},
    {"blocking", REQUEST "scan_type blocked_by rule_name rule_id group category uid filter_action",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteBlockingLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7), I(a, 8),
                                 S(a, 9), S(a, 10), S(a, 11), I(a, 12));
     }},
    {"blocking-info", REQUEST "scan_type blocked_by rule_name rule_id group category uid" INFO,
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteBlockingLogWithAccessInfo(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6),
                                               S(a, 7), I(a, 8), S(a, 9), S(a, 10), S(a, 11), Info(a, 12));
     }},
    {"bot", REQUEST "entity_name action scan_type rule_name group uid filter_action",
     [](Report_Log_Read_Write& w, const Args& a) { return w.WriteBotDetectionLog(Bot(a, true)); }},
    {"bot-info", REQUEST "entity_name action scan_type rule_name group uid" INFO,
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteBotDetectionLogWithAccessInfo(Bot(a, false), Info(a, 11));
     }},
    {"dlp", REQUEST "matched file_name entity_name action scan_type rule_name group uid filter_action",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteDLPLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7), S(a, 8),
                            S(a, 9), S(a, 10), S(a, 11), S(a, 12), I(a, 13));
     }},
    {"dlp-info", REQUEST "matched file_name entity_name action scan_type rule_name group uid" INFO,
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteDLPLogWithAccessInfo(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7),
                                          S(a, 8), S(a, 9), S(a, 10), S(a, 11), S(a, 12), Info(a, 13));
     }},
    {"rkdx", REQUEST "device_name rule_name group client_ip server_ip destination_port alert_source "
                     "risk_level uid filter_action",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteRkdxLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), S(a, 4), S(a, 5), S(a, 6), S(a, 7), S(a, 8),
                             S(a, 9), I(a, 10), I(a, 11), I(a, 12), S(a, 13), I(a, 14));
     }},
    {"cleanup", "uid hostname entity_name entity_type entity_subtype function_code",
     [](Report_Log_Read_Write& w, const Args& a) {
       kls_cleanuplog_entry e;
       e.uid = S(a, 0), e.hostname = S(a, 1), e.entity_name = S(a, 2), e.entity_type = S(a, 3);
       e.entity_subtype = S(a, 4), e.function_code = S(a, 5);
       return w.WriteKLSCleanUpLog(e);
     }},
    {"performance", "server metric_id metric_value",
     [](Report_Log_Read_Write& w, const Args& a) { return w.WritePerformanceLog(S(a, 0), S(a, 1), S(a, 2)); }},
    {"systemevent", "level server source description",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteSystemEventLog(I(a, 0), S(a, 1), S(a, 2), S(a, 3));
     }},
    {"app", "user text2 text3 number1 number2 unsigned1 unsigned2 counter1 counter2 when_epoch last",
     [](Report_Log_Read_Write& w, const Args& a) {
       return w.WriteAppLog(S(a, 0), S(a, 1), S(a, 2), I(a, 3), I(a, 4), U(a, 5), U(a, 6), L(a, 7), L(a, 8),
                            static_cast<time_t>(L(a, 9)), S(a, 10));
     }},
    {"dashboard", "application_id first second",
     [](Report_Log_Read_Write& w, const Args& a) {
       int rc = w.WriteAppArmDashboardLog(U(a, 0), L(a, 1), strtoull(a[2].c_str(), nullptr, 10));
       return rc == 1 ? 0 : -1;
     }},
};

// Column names of each file family, in record order.
struct Family {
  const char* name;
  const char* columns;
};

const Family kFamilies[] = {
    {"access", "user url size date protocol mime server client_ip server_ip domain path file_name operation uid "
               "category category_type elapsed_s elapsed_ms category_names extra"},
    {"violation", "user date protocol url malicious_entity file_name entity_name action scan_type blocked_by "
                  "rule_name rule_id group category uid filter_action/size text1 text2 text3 domain text5 "
                  "number1 number2 number3"},
    {"performance", "server date metric_id metric_value"},
    {"cleanup", "uid hostname date entity_name entity_type entity_subtype function_code"},
    {"systemevent", "server date level source description"},
    {"app", "user date text2 text3 number1 number2 unsigned1 unsigned2 counter1 counter2 when last"},
    {"apparmdashboard", "date application_id first second"},
    {"rkdx", "user date protocol url domain device_name rule_name group client_ip server_ip destination_port "
             "alert_source risk_level uid filter_action"},
};

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

int Usage() { return CommandError(kExitUsage, kUsage); }

// A record line of standard input is at most this long; every record kind
// fits many times over (its fields are cut far shorter).
constexpr size_t kMaxInputLine = 64 * 1024;

// Reads the next line of `in` into `line`, without its line feed. False at
// the end of input; `*too_long` is set (and the rest of the line left unread)
// when the line exceeds kMaxInputLine.
bool ReadLine(FILE* in, std::string* line, bool* too_long) {
  line->clear();
  *too_long = false;
  int c;
  while ((c = getc(in)) != EOF && c != '\n') {
    if (line->size() == kMaxInputLine) {
      *too_long = true;
      return true;
    }
    line->push_back(static_cast<char>(c));
  }
  return c != EOF || !line->empty();
}

int WriteRecord(const Kind& kind, Report_Log_Read_Write& writer, const Args& record, const std::string& where) {
  size_t expected = Split(kind.fields, ' ').size();
  if (record.size() != expected) {
    return CommandError(kExitUsage, where + std::string(kind.name) + " takes " + std::to_string(expected) +
                                        " fields: " + kind.fields);
  }
  if (kind.write(writer, record) != 0) return CommandError(kExitFailure, where + "the record was not written");
  return kExitOk;
}

int Flush() {
  if (Report_Log_Read_Write::FlushLog() != 0) {
    return CommandError(kExitFailure, "the report file could not be written (see the debug log)");
  }
  return kExitOk;
}

// One record per tab-separated line of standard input, each written as it is
// read, so input of any size needs memory for one line only.
int WriteFromStdin(const Kind& kind) {
  Report_Log_Read_Write writer;
  std::string line;
  bool too_long = false;
  for (long number = 1; ReadLine(stdin, &line, &too_long); ++number) {
    const std::string where = "line " + std::to_string(number) + ": ";
    if (too_long) {
      return CommandError(kExitUsage, where + "longer than " + std::to_string(kMaxInputLine) + " bytes");
    }
    if (line.empty()) continue;
    int rc = WriteRecord(kind, writer, Split(line, '\t'), where);
    if (rc != kExitOk) return rc;
  }
  if (ferror(stdin)) return CommandError(kExitFailure, "cannot read standard input");
  return Flush();
}

int Write(int argc, char** argv) {
  if (argc < 3) return Usage();
  const Kind* kind = nullptr;
  for (const Kind& k : kKinds) {
    if (strcmp(k.name, argv[2]) == 0) kind = &k;
  }
  if (kind == nullptr) return CommandError(kExitUsage, std::string("unknown kind '") + argv[2] + "'");
  if (argc == 4 && strcmp(argv[3], "-") == 0) return WriteFromStdin(*kind);
  Report_Log_Read_Write writer;
  int rc = WriteRecord(*kind, writer, Args(argv + 3, argv + argc), "");
  return rc != kExitOk ? rc : Flush();
}

int Kinds() {
  for (const Kind& kind : kKinds) printf("%-14s %s\n", kind.name, kind.fields);
  return kExitOk;
}

// Each cell is cut to this many bytes so that a table stays readable.
constexpr size_t kMaxCell = 40;

std::string Cell(const std::string& text) {
  if (text.size() <= kMaxCell) return text;
  return text.substr(0, kMaxCell - 3) + "...";
}

int Tail(int argc, char** argv) {
  if (argc != 3 && argc != 5) return Usage();
  size_t count = 10;
  if (argc == 5) {
    if (strcmp(argv[3], "-n") != 0) return Usage();
    long long n = 0;
    if (!ParseWholeNumber(argv[4], 0, INT_MAX, &n)) {
      return CommandError(kExitUsage, std::string("N must be a number from 0 to 2147483647, not '") + argv[4] + "'");
    }
    count = static_cast<size_t>(n);
  }
  const Family* family = nullptr;
  for (const Family& f : kFamilies) {
    if (strcmp(f.name, argv[2]) == 0) family = &f;
  }
  if (family == nullptr) return CommandError(kExitUsage, std::string("unknown family '") + argv[2] + "'");
  Report_Log_Read_Write::RefreshConfig();
  std::string suffix;
  std::string today = Report_Log_Read_Write::GetAccessLogQueue().GetLogFileName(suffix);
  // <dir>/<base>.access.<date> -> <dir>/<base>.<family>.
  std::string stem = today.substr(0, today.rfind(".access.")) + "." + family->name + ".";
  std::string dir = stem.substr(0, stem.rfind('/'));
  std::string prefix = stem.substr(stem.rfind('/') + 1);
  // Rolled files sort before the current file of their day.
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    std::string name = entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) == 0) files.push_back(name);
  }
  std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
    std::string day_a = a.substr(0, a.find('_')), day_b = b.substr(0, b.find('_'));
    if (day_a != day_b) return day_a < day_b;
    bool rolled_a = a.find('_') != std::string::npos, rolled_b = b.find('_') != std::string::npos;
    return rolled_a != rolled_b ? rolled_a : a < b;
  });
  std::vector<std::string> lines;
  for (const std::string& name : files) {
    std::ifstream in(dir + "/" + name);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
  }
  if (lines.size() > count) lines.erase(lines.begin(), lines.end() - static_cast<long>(count));
  std::vector<std::vector<std::string>> table;
  table.push_back(Split(family->columns, ' '));
  for (const std::string& line : lines) table.push_back(Split(line, '\t'));
  std::vector<size_t> widths;
  for (const auto& row : table) {
    for (size_t i = 0; i < row.size(); ++i) {
      if (widths.size() <= i) widths.push_back(0);
      widths[i] = std::max(widths[i], Cell(row[i]).size());
    }
  }
  for (const auto& row : table) {
    std::string out;
    for (size_t i = 0; i < row.size(); ++i) {
      std::string cell = Cell(row[i]);
      out += cell;
      if (i + 1 < row.size()) out += std::string(widths[i] - cell.size() + 2, ' ');
    }
    printf("%s\n", out.c_str());
  }
  return lines.empty() ? CommandError(kExitFailure, std::string("no ") + family->name + " records") : kExitOk;
}

int RunReport(int argc, char** argv) {
  if (argc < 2) return Usage();
  std::string verb = argv[1];
  if (verb == "write") return Write(argc, argv);
  if (verb == "kinds" && argc == 2) return Kinds();
  if (verb == "tail") return Tail(argc, argv);
  if (verb == "flush" && argc == 2) {
    Report_Log_Read_Write writer;
    return Report_Log_Read_Write::FlushLog() == 0 ? kExitOk : CommandError(kExitFailure, "flush failed");
  }
  return Usage();
}

}  // namespace

BEXO_COMMAND("report", "write, flush and read report records (write, flush, tail, kinds)", RunReport);
