#include "BEXOScrubbedString.h"

#include <utf8.h>

#include <string.h>

#include "report/report_text.h"

void BEXOScrubbedString::AssignAndScrub(const char* text) {
  if (text == nullptr) {
    value_.clear();
    return;
  }
  value_ = text;
  Scrub(value_, '\t', " ");
  Scrub(value_, '\n', " ");
  ScrubInvalidUTF8(value_);
}

void BEXOScrubbedString::Scrub(std::string& text, char from, const char* replacement) {
  size_t replacement_length = strlen(replacement);
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + replacement_length)) {
    text.replace(at, 1, replacement, replacement_length);
  }
}

void BEXOScrubbedString::ScrubInvalidUTF8(std::string& text) {
  if (utf8::find_invalid(text.begin(), text.end()) == text.end()) return;
  static const char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size() * 3);
  for (char c : text) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kHex[byte >> 4];
      encoded += kHex[byte & 15];
    }
  }
  text.swap(encoded);
}

int Descriptify_DecimalCode(const char* source, std::string& output, bool strip, bool numeric) {
  output.clear();
  if (source == nullptr) return 0;
  bexo_report::StringOut out{output};
  return bexo_report::DescriptifyTo(source, strip, numeric, out);
}

int Descriptify(const char* source, std::string& output, bool strip) {
  return Descriptify_DecimalCode(source, output, strip, false);
}
