// Text cleaning shared by the report and syslog writers.
//
// BEXOScrubbedString cleans whatever is assigned to it: tabs and line feeds
// become blanks, so no argument can break the tab/line structure of a record,
// and when the text is not valid UTF-8 every byte with the high bit set is
// written as "%XX" (upper-case hex), valid characters included.
//
// Descriptify_DecimalCode escapes "<", ">" and a bare "&" as entities (or
// drops them, and the encoded brackets "%3C"/"%3E", when `strip` is set);
// existing "&amp;", "&lt;", "&gt;" (and "&#NN" with `numeric`) are kept, and
// carriage returns are removed. Both return the number of characters escaped
// or dropped.
//
// Thread safety: value types and reentrant functions.
#pragma once

#include <stddef.h>

#include <string>

#include "bexo_export.h"

class BEXO_EXPORT BEXOScrubbedString {
 public:
  BEXOScrubbedString() = default;
  BEXOScrubbedString(const char* text) { AssignAndScrub(text); }  // NOLINT: implicit like a string
  BEXOScrubbedString& operator=(const char* text) {
    AssignAndScrub(text);
    return *this;
  }
  operator const char*() const { return value_.c_str(); }  // NOLINT
  const char* c_str() const { return value_.c_str(); }
  size_t length() const { return value_.size(); }
  const std::string& str() const { return value_; }

  // A null text gives an empty string.
  void AssignAndScrub(const char* text);

  // Replaces every `from` in `text` by `replacement`.
  static void Scrub(std::string& text, char from, const char* replacement);
  // Percent-encodes every high byte when `text` is not valid UTF-8.
  static void ScrubInvalidUTF8(std::string& text);

 private:
  std::string value_;
};

BEXO_EXPORT int Descriptify_DecimalCode(const char* source, std::string& output, bool strip,
                                        bool numeric);
BEXO_EXPORT int Descriptify(const char* source, std::string& output, bool strip);
