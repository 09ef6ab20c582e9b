#include "src/API_legacy/include/url_rule_serialization_io"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "UxLog.h"
#include "UxSocketAddress.h"
#include "load_publisher.h"

const char url_rule_serialization_io::kFileHeader[] =
    "# user should not modify this file by hand,\n"
    "# please use GUI instead; otherwise it may tamper\n"
    "# the structure of this file!\n";

static_assert(sizeof url_rule_serialization_io::kFileHeader - 1 ==
                  url_rule_serialization_io::kFileHeaderSize,
              "the rule file header is 124 bytes");

namespace {

constexpr char kDelimiter[] = "-->";
constexpr size_t kDelimiterLength = sizeof kDelimiter - 1;

// Closes a stdio file on every way out.
class FileCloser {
 public:
  explicit FileCloser(FILE* fp) : fp_(fp) {}
  ~FileCloser() {
    if (fp_ != nullptr) fclose(fp_);
  }
  FILE* release() {
    FILE* fp = fp_;
    fp_ = nullptr;
    return fp;
  }
  FileCloser(const FileCloser&) = delete;
  FileCloser& operator=(const FileCloser&) = delete;

 private:
  FILE* fp_;
};

}  // namespace

url_rule_serialization_io::~url_rule_serialization_io() = default;

url_rule_serialization_io* url_rule_serialization_io::_begin_load(bool keep_rules) {
  lock_.wrlock();
  if (!keep_rules) clear();
  return this;
}

void url_rule_serialization_io::_publish_load(url_rule_serialization_io* target) {
  URL_RULE_ASSERT(target == this);
  lock_.wrunlock();
}

bool url_rule_serialization_io::serialization(const char* path) const {
  if (path == nullptr) return false;
  FILE* fp = fopen(path, "w");
  if (fp == nullptr) return false;
  FileCloser closer(fp);
  fwrite(kFileHeader, 1, kFileHeaderSize, fp);
  {
    UrlRuleReadGuard hold(lock_);
    for (int value = 0; value < unknown_policy; ++value) {
      const policies policy = static_cast<policies>(value);
      // Translated block rules are made again from the block rules at each load.
      if (policy == translated_block_policy || url_policy_section_name(value)[0] == '\0') continue;
      _printf_list_header(fp, policy);
      fputc('\n', fp);
      _printf_list(fp, policy);
    }
  }
  const bool written = ferror(fp) == 0;
  return fclose(closer.release()) == 0 && written;
}

bool url_rule_serialization_io::deserialization(const char* path, bool translate,
                                                bool clear_first) {
  if (path == nullptr || access(path, R_OK) != 0) return false;
  FILE* fp = fopen(path, "r");
  if (fp == nullptr) return false;
  FileCloser closer(fp);

  LoadPublisher publish(*this, clear_first);
  url_rule_serialization_io& target = publish.target();
  const time_t start = time(nullptr);
  policies policy = block_policy;
  bool seen_section = false;
  char line[kLineBufferSize];
  while (fgets(line, sizeof line, fp) != nullptr) {
    // Name resolution is bounded: only the first seconds of a load translate.
    if (translate) translate = time(nullptr) - start < kTranslateSeconds;
    if (line[0] == '\n' || line[0] == '#') continue;
    size_t length = strlen(line);
    if (length == 0 || line[length - 1] != '\n') {
      if (seen_section) continue;
      UX_LOG(1, "url_rule_serialization_io.cpp", "deserialization",
             "WARNING: URL list in file [%s] appears to be invalid and will not be loaded", path);
      break;
    }
    while (length > 0 &&
           (line[length - 1] == ' ' || line[length - 1] == '\t' || line[length - 1] == '\n')) {
      line[--length] = '\0';
    }
    if (length == 0) continue;
    if (line[0] == '[') {
      const policies named = url_policy_from_section_name(line);
      if (named != unknown_policy) {
        policy = named;
        seen_section = true;
      }
      continue;
    }
    if (!target._do_parse_and_addlist(line, translate, policy, 0)) return false;
  }
  return true;
}

void url_rule_serialization_io::_get_url_and_opp_id(char* line, const char*& url,
                                                    const char*& identifier,
                                                    const char*& expiry) const {
  url = line;
  identifier = "";
  expiry = "";
  char* mark = strstr(line, kDelimiter);
  if (mark == nullptr) return;
  *mark = '\0';
  identifier = mark + kDelimiterLength;
  mark = strstr(mark + kDelimiterLength, kDelimiter);
  if (mark == nullptr) return;
  *mark = '\0';
  expiry = mark + kDelimiterLength;
}

bool url_rule_serialization_io::_do_parse_and_addlist(const char* line, bool translate,
                                                      policies policy, int list_id) {
  char buffer[kLineBufferSize];
  const size_t length = strnlen(line, sizeof buffer - 1);
  memcpy(buffer, line, length);
  buffer[length] = '\0';
  const char* url;
  const char* identifier;
  const char* expiry_text;
  _get_url_and_opp_id(buffer, url, identifier, expiry_text);
  // A fourth field (the list identifier written by the device) is not read here.
  if (char* rest = strstr(const_cast<char*>(expiry_text), kDelimiter)) *rest = '\0';

  ux_Time expiry;
  const ux_Time* expiry_ptr = nullptr;
  if (expiry_text[0] != '\0') {
    try {
      expiry.set_to_string_value(expiry_text);
      expiry_ptr = &expiry;
    } catch (const UXX_illegal_argument&) {
      // An unreadable expiry voids the identifier too; the rule itself stays.
      identifier = "";
    }
  }
  // An empty identifier is stored as none: nothing to copy per rule.
  if (identifier[0] == '\0') identifier = nullptr;

  if (policy == block_policy && translate && url[0] != '\0' && url[0] != '*') {
    const char* slash = strchr(url, '/');
    const char* end = slash != nullptr ? slash : strrchr(url, '*');
    if (end == nullptr) end = url + strlen(url);
    const std::string host(url, end);
    UxSocketHostAddress addresses(host.c_str());
    char text[1024];
    for (int i = 0; i < addresses.size(); ++i) {
      if (addresses[i].toString(false, text, sizeof text) == nullptr) continue;
      const std::string translated = std::string(text) + end;
      UX_LOG(1, "url_rule_serialization_io.cpp", "_do_parse_and_addlist",
             "url_rule_serialization_io::_do_parse_and_addlist, adding [%s]", translated.c_str());
      if (!_add_entry(translated.c_str(), translated_block_policy, identifier, expiry_ptr,
                      list_id)) {
        break;
      }
    }
  }
  return _add_entry(url, policy, identifier, expiry_ptr, list_id);
}

void url_rule_serialization_io::_printf_list_header(FILE* fp, policies policy) const {
  if (fp == nullptr || policy < 0 || policy >= unknown_policy) return;
  fputs(url_policy_section_name(policy), fp);
}
