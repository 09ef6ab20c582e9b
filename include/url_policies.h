// URL rule policies and lookup results shared by the rule stores, the
// matching module and the rule list files. A policy's value is also the index
// of its section name in a rule list file.
//
// Thread safety: constants and pure functions only.
#pragma once

#include "bexo_export.h"

enum policies {
  error_type_policy = 0,
  filename_policy = 1,
  web_mail_site_policy = 2,
  web_server_policy = 3,
  url_pattern_policy = 4,
  java_vb_script_policy = 5,
  allow_policy = 6,
  block_policy = 7,
  bexo_block_policy = 8,
  pattern_policy = 9,
  translated_block_policy = 10,
  ph_policy = 11,
  sp_policy = 12,
  vi_policy = 13,
  fs_policy = 14,
  dv_policy = 15,
  ap_policy = 16,
  javascan_policy = 21,
  mmc_policy = 22,
  unknown_policy = 71  // also marks a trie node that ends no rule
};

enum find_entry_results {
  entry_not_found = 0,
  entry_expired = 1,
  entry_found = 2
};

// Section name of a policy in a rule list file, such as "[allow]"; the empty
// text for reserved values and for values of 71 or more.
BEXO_EXPORT const char* url_policy_section_name(int policy);

// The policy whose section name is exactly `line` (case-sensitive), or
// unknown_policy when no policy has that name.
BEXO_EXPORT policies url_policy_from_section_name(const char* line);

// Outbreak-prevention kinds: 1 to 5.
BEXO_EXPORT bool is_opp_policy(policies policy);
// Allow: 6 only.
BEXO_EXPORT bool is_allow_policy(policies policy);
// Blocking kinds: every outbreak-prevention kind, block, BEXO block, pattern
// and translated block (1 to 5, 7 to 10).
BEXO_EXPORT bool is_block_policy(policies policy);
// Rules an administrator defines: allow, block, BEXO block, pattern (6 to 9);
// translated block rules are made by the loader and do not count.
BEXO_EXPORT bool is_user_defined_policy(policies policy);
