// bexo replay: plays requests through the gateway's request path. Each
// request is matched against the outbreak-prevention and user-defined rule
// lists and recorded as an access record, or as a blocking record when a block
// rule matched; the run itself is reported as a system event.
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>

#include "ReportSystemEventLog.h"
#include "Report_Log_Read_Write.h"
#include "command.h"
#include "url_matching_module.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo replay --opp FILE --user FILE REQUESTS\n"
    "  REQUESTS: one request a line, \"USER CLIENT_IP URL\" (\"-\" reads stdin; # starts a comment)";

struct Request {
  std::string user;
  std::string client_ip;
  std::string url;
};

struct UrlParts {
  std::string protocol = "http";
  std::string host;
  int port = 0;
  std::string path = "/";
};

UrlParts SplitUrl(const std::string& url) {
  UrlParts parts;
  std::string rest = url;
  size_t scheme = rest.find("://");
  if (scheme != std::string::npos) {
    parts.protocol = rest.substr(0, scheme);
    for (char& c : parts.protocol) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    rest.erase(0, scheme + 3);
  }
  size_t slash = rest.find('/');
  std::string authority = rest.substr(0, slash);
  if (slash != std::string::npos) parts.path = rest.substr(slash);
  size_t colon = authority.rfind(':');
  if (colon != std::string::npos && authority.find_first_not_of("0123456789", colon + 1) == std::string::npos &&
      colon + 1 < authority.size()) {
    parts.port = atoi(authority.c_str() + colon + 1);
    authority.erase(colon);
  }
  parts.host = authority;
  return parts;
}

// The report files now in the directory of today's access file.
std::set<std::string> ReportFiles() {
  std::string suffix;
  std::string access = Report_Log_Read_Write::GetAccessLogQueue().GetLogFileName(suffix);
  std::string dir = access.substr(0, access.rfind('/'));
  std::set<std::string> files;
  if (DIR* d = opendir(dir.c_str())) {
    while (struct dirent* entry = readdir(d)) {
      if (entry->d_name[0] != '.') files.insert(dir + "/" + entry->d_name);
    }
    closedir(d);
  }
  return files;
}

int Replay(const char* opp, const char* user_list, std::istream& in) {
  url_matching_module matcher;
  if (!matcher.deserialization(opp, user_list, false, true)) {
    return CommandError(kExitFailure, std::string("cannot load ") + opp + " or " + user_list);
  }
  Report_Log_Read_Write::RefreshConfig();
  Report_Log_Read_Write writer;
  int requests = 0, blocked = 0, records = 0, failed = 0;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    Request r;
    if (!(fields >> r.user >> r.client_ip >> r.url) || r.user[0] == '#') continue;
    ++requests;
    policies policy = unknown_policy;
    std::string rule, identifier, expiry;
    int list_id = 0;
    find_entry_results result =
        matcher.find_entry(r.url.c_str(), policy, rule, identifier, expiry, list_id, false);
    UrlParts u = SplitUrl(r.url);
    bool block = result == entry_found && is_block_policy(policy);
    int rc;
    if (block) {
      ++blocked;
      rc = writer.WriteBlockingLog(r.user.c_str(), u.protocol.c_str(), u.host.c_str(), u.port,
                                   u.path.c_str(), "URL Filtering", "URL blocking rule", rule.c_str(),
                                   list_id, "", url_policy_section_name(policy), identifier.c_str(), 0);
    } else {
      rc = writer.WriteAccessLog(r.user.c_str(), u.protocol.c_str(), u.host.c_str(), u.port,
                                 u.path.c_str(), 0, "text/html", "bexo-replay", r.client_ip.c_str(), "",
                                 "GET", identifier.c_str(), 0, 0, 0,
                                 result == entry_found ? url_policy_section_name(policy) : "", "");
    }
    if (rc < 0) {
      ++failed;
    } else {
      ++records;
    }
    printf("%-8s %-15s %-7s %s\n", r.user.c_str(), r.client_ip.c_str(), block ? "BLOCK" : "allow",
           r.url.c_str());
  }
  char summary[256];
  snprintf(summary, sizeof summary, "replayed %d requests: %d blocked, %d records written", requests,
           blocked, records);
  ReportSystemEventLog events;
  events.WriteSystemEventLog(3, "localhost", "bexo replay", summary);
  if (Report_Log_Read_Write::FlushLog() < 0) ++failed;

  printf("\nrequests: %d, blocked: %d, records written: %d", requests, blocked, records);
  if (failed) printf(", failed: %d", failed);
  printf("\nreport files:\n");
  for (const std::string& file : ReportFiles()) printf("  %s\n", file.c_str());
  return failed ? kExitFailure : kExitOk;
}

int RunReplay(int argc, char** argv) {
  const char* opp = nullptr;
  const char* user = nullptr;
  const char* requests = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--opp") == 0 && i + 1 < argc) {
      opp = argv[++i];
    } else if (strcmp(argv[i], "--user") == 0 && i + 1 < argc) {
      user = argv[++i];
    } else if (requests == nullptr) {
      requests = argv[i];
    } else {
      return CommandError(kExitUsage, kUsage);
    }
  }
  if (!opp || !user || !requests) return CommandError(kExitUsage, kUsage);
  if (strcmp(requests, "-") == 0) return Replay(opp, user, std::cin);
  std::ifstream in(requests);
  if (!in) return CommandError(kExitFailure, std::string("cannot read ") + requests);
  return Replay(opp, user, in);
}

}  // namespace

BEXO_COMMAND("replay", "play requests through URL matching into report records", RunReplay);
