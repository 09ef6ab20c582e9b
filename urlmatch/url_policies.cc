#include "url_policies.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "url_rule_assert.h"

namespace {

// Indexed by policy value; reserved values have no section.
const char* const kSectionNames[unknown_policy] = {
    "[error_type]", "[filename]", "[web_mail_site]", "[web_server]", "[url_pattern]",
    "[java_vb_script]", "[allow]", "[block]", "[BEXO_block]", "[pattern]",
    "[translated_block]", "[PH]", "[SP]", "[VI]", "[FS]", "[DV]", "[AP]", "", "", "", "",
    "[javascan]", "[mmc]",
    // 23 to 70: reserved, value-initialised to null below and read as ""
};

}  // namespace

const char* url_policy_section_name(int policy) {
  if (policy < 0 || policy >= unknown_policy || kSectionNames[policy] == nullptr) return "";
  return kSectionNames[policy];
}

policies url_policy_from_section_name(const char* line) {
  if (line == nullptr || line[0] != '[') return unknown_policy;
  for (int policy = 0; policy < unknown_policy; ++policy) {
    const char* name = url_policy_section_name(policy);
    if (name[0] != '\0' && strcmp(name, line) == 0) return static_cast<policies>(policy);
  }
  return unknown_policy;
}

bool is_opp_policy(policies policy) { return policy >= filename_policy && policy <= java_vb_script_policy; }

bool is_allow_policy(policies policy) { return policy == allow_policy; }

bool is_block_policy(policies policy) {
  return is_opp_policy(policy) || (policy >= block_policy && policy <= translated_block_policy);
}

bool is_user_defined_policy(policies policy) {
  return policy >= allow_policy && policy <= pattern_policy;
}

void url_rule_assert_fail(const char* expression, const char* file, int line,
                          const char* function) {
  fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
  fflush(stderr);
  abort();
}
