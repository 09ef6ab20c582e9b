// bexo url: normalise URLs, match them against rule list files, and edit and
// check rule list files from the shell.
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "command.h"
#include "double_linked_graph.h"
#include "url_matching_module.h"
#include "url_rule_serialization_device.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo url normalize [--rule] URL...      print each URL as the matcher sees it\n"
    "                                               (--rule: as a rule text, escapes kept)\n"
    "       bexo url match [--opp FILE] [--user FILE] [--translate] [--delete-expired]\n"
    "                      [--tsv] [URL...|-]      match URLs (- reads them from stdin)\n"
    "       bexo url add FILE RULE POLICY [--id ID] [--expires 'YYYY/MM/DD HH:MM:SS']\n"
    "       bexo url del FILE RULE                  remove a rule\n"
    "       bexo url list FILE [POLICY]             print the rules in file order\n"
    "       bexo url check FILE                     report invalid files and lines\n"
    "POLICY is a section name without brackets: allow, block, BEXO_block, pattern,\n"
    "filename, web_mail_site, web_server, url_pattern, java_vb_script, ...";

constexpr int kUrlBufferSize = 1024;

int Usage() { return CommandError(kExitUsage, kUsage); }

// The section name without brackets, e.g. "allow".
std::string PolicyName(policies policy) {
  std::string name = url_policy_section_name(policy);
  return name.size() > 2 ? name.substr(1, name.size() - 2) : std::to_string(policy);
}

policies PolicyFromName(const std::string& text) {
  for (int p = 0; p < unknown_policy; ++p) {
    if (strcasecmp(PolicyName(static_cast<policies>(p)).c_str(), text.c_str()) == 0 &&
        url_policy_section_name(p)[0] != '\0') {
      return static_cast<policies>(p);
    }
  }
  return unknown_policy;
}

const char* ResultName(find_entry_results result) {
  switch (result) {
    case entry_found:
      return "found";
    case entry_expired:
      return "expired";
    default:
      return "not found";
  }
}

// The text a rule is stored as: normalised, escaped wildcards kept.
std::string RuleText(const char* text) {
  char normal[kUrlBufferSize];
  return _to_lower_and_url_decode(text, normal, sizeof normal, false) ? normal : text;
}

int Normalize(int argc, char** argv) {
  bool rule = false;
  int first = 2;
  if (first < argc && strcmp(argv[first], "--rule") == 0) {
    rule = true;
    ++first;
  }
  if (first >= argc) return Usage();
  for (int i = first; i < argc; ++i) {
    char normal[kUrlBufferSize];
    if (!_to_lower_and_url_decode(argv[i], normal, sizeof normal, !rule)) {
      return CommandError(kExitFailure, std::string("URL too long (1023 characters at most): ") +
                                            std::string(argv[i]).substr(0, 40) + "...");
    }
    printf("%s\n", normal);
  }
  return kExitOk;
}

// Prints rows as a table with aligned columns.
void PrintTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      if (c + 1 < row.size()) line += std::string(widths[c] - row[c].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    printf("%s\n", line.c_str());
  }
}

int Match(int argc, char** argv) {
  const char* opp = nullptr;
  const char* user = nullptr;
  bool translate = false, delete_expired = false, tsv = false;
  std::vector<std::string> urls;
  bool from_stdin = false;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--opp" && i + 1 < argc) {
      opp = argv[++i];
    } else if (arg == "--user" && i + 1 < argc) {
      user = argv[++i];
    } else if (arg == "--translate") {
      translate = true;
    } else if (arg == "--delete-expired") {
      delete_expired = true;
    } else if (arg == "--tsv") {
      tsv = true;
    } else if (arg == "-") {
      from_stdin = true;
    } else if (arg.compare(0, 2, "--") == 0) {
      return Usage();
    } else {
      urls.push_back(arg);
    }
  }
  if (opp == nullptr && user == nullptr) return Usage();

  url_matching_module module;
  for (const char* path : {opp, user}) {
    if (path != nullptr && RequireReadableFile(path) != kExitOk) return kExitFailure;
  }
  // Without --opp the opp graph stays empty; the user file loads all the same.
  module.deserialization(opp, user, translate, true);

  std::vector<std::vector<std::string>> rows;
  if (!tsv) rows.push_back({"URL", "RESULT", "POLICY", "RULE", "IDENTIFIER", "EXPIRY"});
  bool any_match = false;
  policies policy;
  std::string rule, identifier, expiry;
  int list_id;
  auto match_one = [&](const std::string& url) {
    const find_entry_results result =
        module.find_entry(url.c_str(), policy, rule, identifier, expiry, list_id, delete_expired);
    any_match |= result != entry_not_found;
    std::vector<std::string> row = {url, ResultName(result)};
    if (result != entry_not_found) {
      row.insert(row.end(), {PolicyName(policy), rule, identifier, expiry});
    } else if (tsv) {
      row.insert(row.end(), {"", "", "", ""});
    }
    if (tsv) {
      std::string line;
      for (size_t c = 0; c < row.size(); ++c) line += (c ? "\t" : "") + row[c];
      printf("%s\n", line.c_str());
    } else {
      rows.push_back(row);
    }
  };
  for (const std::string& url : urls) match_one(url);
  if (from_stdin) {
    std::string line;
    char chunk[4096];
    while (fgets(chunk, sizeof chunk, stdin) != nullptr) {
      line += chunk;
      if (line.back() != '\n' && !feof(stdin)) continue;
      while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
      if (!line.empty()) match_one(line);
      line.clear();
    }
  }
  if (!tsv) PrintTable(rows);
  return any_match ? kExitOk : kExitFailure;
}

int Add(int argc, char** argv) {
  if (argc < 5) return Usage();
  const char* file = argv[2];
  const policies policy = PolicyFromName(argv[4]);
  if (policy == unknown_policy || policy == translated_block_policy) {
    return CommandError(kExitUsage, std::string("unknown policy '") + argv[4] + "'");
  }
  const char* identifier = nullptr;
  ux_Time expiry;
  const ux_Time* expiry_ptr = nullptr;
  for (int i = 5; i < argc; ++i) {
    if (strcmp(argv[i], "--id") == 0 && i + 1 < argc) {
      identifier = argv[++i];
    } else if (strcmp(argv[i], "--expires") == 0 && i + 1 < argc) {
      try {
        expiry.set_to_string_value(argv[++i]);
      } catch (const UXX_illegal_argument&) {
        return CommandError(kExitUsage, std::string("not a time (YYYY/MM/DD HH:MM:SS): ") + argv[i]);
      }
      expiry_ptr = &expiry;
    } else {
      return Usage();
    }
  }
  double_linked_graph graph;
  if (access(file, F_OK) == 0 && !graph.deserialization(file, false, true)) {
    return CommandError(kExitFailure, std::string("cannot read ") + file);
  }
  const std::string rule = RuleText(argv[3]);
  if (rule.empty()) return CommandError(kExitUsage, "empty rule");
  {
    UrlRuleWriteGuard hold(graph.rule_lock());
    if (!graph._add_entry(rule.c_str(), policy, identifier, expiry_ptr, 0)) {
      return CommandError(kExitFailure, "out of memory");
    }
  }
  if (!graph.serialization(file)) return CommandError(kExitFailure, std::string("cannot write ") + file);
  printf("added %s to [%s] of %s\n", rule.c_str(), PolicyName(policy).c_str(), file);
  return kExitOk;
}

int Delete(int argc, char** argv) {
  if (argc != 4) return Usage();
  const char* file = argv[2];
  double_linked_graph graph;
  if (!graph.deserialization(file, false, true)) {
    return CommandError(kExitFailure, std::string("cannot read ") + file);
  }
  if (!graph.delete_entry(argv[3], false)) {
    return CommandError(kExitFailure, "no rule " + RuleText(argv[3]) + " in " + file);
  }
  if (!graph.serialization(file)) return CommandError(kExitFailure, std::string("cannot write ") + file);
  printf("deleted %s from %s\n", RuleText(argv[3]).c_str(), file);
  return kExitOk;
}

int List(int argc, char** argv) {
  if (argc != 3 && argc != 4) return Usage();
  policies only = unknown_policy;
  if (argc == 4 && (only = PolicyFromName(argv[3])) == unknown_policy) {
    return CommandError(kExitUsage, std::string("unknown policy '") + argv[3] + "'");
  }
  url_rule_serialization_device device;
  if (!device.deserialization(argv[2], false, true)) {
    return CommandError(kExitFailure, std::string("cannot read ") + argv[2]);
  }
  std::vector<std::vector<std::string>> rows = {{"POLICY", "RULE", "IDENTIFIER", "EXPIRY"}};
  for (int p = 0; p < unknown_policy; ++p) {
    if (only != unknown_policy && p != only) continue;
    const char *url, *identifier, *expiry;
    int list_id;
    while (device.get_entry(static_cast<policies>(p), url, identifier, expiry, list_id)) {
      rows.push_back({PolicyName(static_cast<policies>(p)), url, identifier, expiry});
    }
  }
  PrintTable(rows);
  return kExitOk;
}

// Reads the file with the loader's rules and says what the loader would
// silently skip, drop or misread. (Stars cost a lookup no more than other
// characters, so they are not reported.)
int Check(int argc, char** argv) {
  if (argc != 3) return Usage();
  const char* file = argv[2];
  if (RequireReadableFile(file) != kExitOk) return kExitFailure;
  FILE* fp = fopen(file, "r");
  if (fp == nullptr) return CommandError(kExitFailure, std::string("cannot read ") + file);
  url_rule_serialization_device splitter;
  char line[url_rule_serialization_io::kLineBufferSize];
  bool seen_section = false, invalid = false;
  int number = 0, problems = 0, rules = 0;
  auto report = [&](const std::string& text) {
    printf("%s:%d: %s\n", file, number, text.c_str());
    ++problems;
  };
  while (fgets(line, sizeof line, fp) != nullptr) {
    ++number;
    size_t length = strlen(line);
    const bool terminated = length > 0 && line[length - 1] == '\n';
    if (line[0] == '\n' || line[0] == '#') continue;
    if (!terminated) {
      if (!seen_section) {
        report("unterminated line before any section: the file is invalid and will not load");
        invalid = true;
        break;
      }
      report(length == sizeof line - 1 ? "line longer than 1063 characters: skipped"
                                       : "last line has no line feed: skipped");
      continue;
    }
    while (length > 0 && strchr(" \t\n", line[length - 1]) != nullptr) line[--length] = '\0';
    if (length == 0) continue;
    if (line[0] == '[') {
      if (url_policy_from_section_name(line) == unknown_policy) {
        report(std::string("unknown section ") + line + ": ignored, the previous section goes on");
      } else {
        seen_section = true;
      }
      continue;
    }
    ++rules;
    if (!seen_section) report("rule before any section: loaded as [block]");
    const char *url, *identifier, *expiry_text;
    splitter._get_url_and_opp_id(line, url, identifier, expiry_text);
    if (expiry_text[0] != '\0') {
      std::string expiry(expiry_text);
      expiry = expiry.substr(0, expiry.find("-->"));
      try {
        ux_Time().set_to_string_value(expiry.c_str());
      } catch (const UXX_illegal_argument&) {
        report("unreadable expiry '" + expiry + "': identifier and expiry are dropped");
      }
    }
    if (RuleText(url) != url) {
      report(std::string("rule ") + url + " is not normalised and never matches as written; " +
             "normalised: " + RuleText(url));
    }
  }
  fclose(fp);
  printf("%s: %d rule lines, %d problem%s%s\n", file, rules, problems, problems == 1 ? "" : "s",
         invalid ? " (invalid file)" : "");
  return problems == 0 ? kExitOk : kExitFailure;
}

int RunUrl(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string verb = argv[1];
  if (verb == "normalize") return Normalize(argc, argv);
  if (verb == "match") return Match(argc, argv);
  if (verb == "add") return Add(argc, argv);
  if (verb == "del") return Delete(argc, argv);
  if (verb == "list") return List(argc, argv);
  if (verb == "check") return Check(argc, argv);
  return Usage();
}

}  // namespace

BEXO_COMMAND("url", "normalise URLs, match them against rule lists, edit rule list files", RunUrl);
