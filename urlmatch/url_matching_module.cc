#include "url_matching_module.h"

#include <ctype.h>
#include <string.h>

#include "bexo_util.h"

bool url_matching_module::add_entry(const char* url, policies policy, const char* identifier,
                                    const ux_Time* expiry) {
  URL_RULE_ASSERT(policy < unknown_policy);
  const char* policy_url = url;
  URL_RULE_ASSERT(policy_url);
  double_linked_graph* graph = is_opp_policy(policy)            ? &opp_graph_
                               : is_user_defined_policy(policy) ? &user_graph_
                                                                : nullptr;
  if (graph == nullptr) return false;
  UrlRuleWriteGuard hold(graph->rule_lock());
  return graph->_add_entry(url, policy, identifier, expiry, 0);
}

find_entry_results url_matching_module::find_entry(const char* user_url, policies& policy,
                                                   std::string& rule_url,
                                                   std::string& identifier, std::string& expiry,
                                                   int& list_id, bool delete_expired) {
  URL_RULE_ASSERT(user_url);
  const find_entry_results opp = opp_graph_.find_entry(user_url, policy, rule_url, identifier,
                                                       expiry, list_id, delete_expired);
  if (opp != entry_not_found) return opp;
  return user_graph_.find_entry(user_url, policy, rule_url, identifier, expiry, list_id,
                                delete_expired);
}

int url_matching_module::total_size() const { return opp_graph_.size() + user_graph_.size(); }

bool url_matching_module::serialization(const char* opp_path, const char* user_path) const {
  if (opp_path != nullptr && !opp_graph_.serialization(opp_path)) return false;
  if (user_path != nullptr) return user_graph_.serialization(user_path);
  return true;
}

bool url_matching_module::deserialization(const char* opp_path, const char* user_path,
                                          bool translate, bool clear_user) {
  const bool opp_loaded = opp_graph_.deserialization(opp_path, translate, true);
  if (user_path == nullptr) return opp_loaded;
  const bool user_loaded = user_graph_.deserialization(user_path, translate, clear_user);
  return opp_loaded || user_loaded;
}

namespace {

// C library tolower, without the call for the ASCII letters that make up
// nearly every URL.
inline char ToLower(unsigned char c) {
  if (c < 0x80) return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  return static_cast<char>(tolower(c));
}

// ASCII characters that normalisation only lower-cases: everything but the
// separators, '.', '%' and NUL. Letters and digits, the bulk of a URL, then
// take one well-predicted branch.
struct PlainTable {
  bool plain[128];
  constexpr PlainTable() : plain() {
    for (int c = 1; c < 128; ++c) plain[c] = c != '/' && c != '\\' && c != '.' && c != '%';
  }
};
constexpr PlainTable kPlain;

// hexto4u over exactly `count` characters of `text` (2 or 3), so that it
// never reads past them.
int DecodeHex(const char* text, int count) {
  char pair[4] = {};
  memcpy(pair, text, count);
  return hexto4u(pair);
}

}  // namespace

bool _to_lower_and_url_decode(const char* input_buffer, char* result_buffer, int result_size,
                              bool decode_wildcards) {
  URL_RULE_ASSERT(input_buffer);
  URL_RULE_ASSERT(result_buffer);
  const char* in = input_buffer;
  char* out = result_buffer;
  const int n = static_cast<int>(strlen(in));
  // The output is never longer than the input.
  if (result_size <= n) return false;

  int i = 0;
  int o = 0;
  while (in[i] != '\0') {
    const char c = in[i];
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x80 && kPlain.plain[byte]) {
      out[o++] = ToLower(byte);
      ++i;
    } else if (c == '/' || c == '\\') {
      if (o > 0 && out[o - 1] != '/') out[o++] = '/';
      ++i;
    } else if (c == '.') {
      if (o >= 1 && out[o - 1] == '/') {
        if (in[i + 1] == '/') {
          i += 2;
          continue;
        }
        if (in[i + 1] == '.' && in[i + 2] == '/') {
          i += 3;
          _roll_back_to_parent_folder(out, o);
          continue;
        }
      }
      out[o++] = '.';
      ++i;
    } else if (c == '%') {
      if (i + 2 >= n) {
        out[o++] = '%';
        ++i;
        continue;
      }
      int value = DecodeHex(in + i, 3);
      i += 3;
      // '%2541' and '%252541' are the percent sign encoded again: decode the chain.
      while (value == '%' && i + 1 < n) {
        value = DecodeHex(in + i, 2);
        i += 2;
      }
      if (value == '%') {
        out[o++] = '%';
      } else if (value < 0) {
        out[o++] = '%';
        i -= 2;  // read the two characters again as plain text
      } else if (!decode_wildcards && value == '*') {
        memcpy(out + o, "%2a", 3);
        o += 3;
      } else if (!decode_wildcards && value == '?') {
        memcpy(out + o, "%3f", 3);
        o += 3;
      } else {
        out[o++] = ToLower(static_cast<unsigned char>(value));
      }
    } else {
      out[o++] = ToLower(static_cast<unsigned char>(c));
      ++i;
    }
  }
  out[o] = '\0';
  return true;
}
