// bexo url load-db: load one URL list of the policy database into a matcher,
// print its size, and match URLs against it.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "UxDbAgent.h"
#include "command.h"
#include "url_matching_module.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo url load-db --list ID --type 1|2|100 --sql DIR [URL...]\n"
    "  loads list ID (1 URL list, 2 file list, 100 every custom category) with the queries of\n"
    "  DIR, using section Database of morvane.ini; then prints the match of each URL";

int Usage() { return CommandError(kExitUsage, kUsage); }

bool ParseInt(const char* text, int& value) {
  char* end = nullptr;
  const long long parsed = strtoll(text, &end, 10);
  if (end == text || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) return false;
  value = static_cast<int>(parsed);
  return true;
}

int RunLoadDb(int argc, char** argv) {
  int list_id = 0, list_type = 0;
  const char* sql = nullptr;
  bool have_list = false;
  int i = 1;
  for (; i + 1 < argc && strncmp(argv[i], "--", 2) == 0; i += 2) {
    const std::string option = argv[i];
    if (option == "--list" && ParseInt(argv[i + 1], list_id)) {
      have_list = true;
    } else if (option == "--type" && ParseInt(argv[i + 1], list_type)) {
    } else if (option == "--sql") {
      sql = argv[i + 1];
    } else {
      return Usage();
    }
  }
  if (!have_list || list_type == 0 || sql == nullptr) return Usage();
  url_matching_module module;
  try {
    UxDbAgent agent("Database");
    if (!module.deserialization(list_id, list_type, sql, agent)) {
      return CommandError(kExitFailure, "list type " + std::to_string(list_type) +
                                            " or query directory " + sql + " refused (see the debug log)");
    }
  } catch (const UxDbException& e) {
    return CommandError(kExitFailure, std::string("policy database: ") + e.what());
  }
  printf("list %d (type %d): %d rules\n", list_id, list_type, module.user_graph().size());
  for (; i < argc; ++i) {
    policies policy = unknown_policy;
    std::string rule, identifier, expiry;
    int found_list = 0;
    if (module.find_entry(argv[i], policy, rule, identifier, expiry, found_list, false) == entry_not_found) {
      printf("%s\tno match\n", argv[i]);
    } else {
      printf("%s\t%s\t%s\tlist %d\n", argv[i], url_policy_section_name(policy), rule.c_str(), found_list);
    }
  }
  return kExitOk;
}

}  // namespace

BEXO_COMMAND("url load-db", "load a URL list from the policy database into a matcher", RunLoadDb);
