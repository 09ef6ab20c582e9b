// Base64 and quoted-printable codecs of mail_cnvt (RFC 2045).
#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "base64_block.h"
#include "mail_cnvt.h"

namespace bexo_mail {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kHex[] = "0123456789ABCDEF";
constexpr int kQprintLineLimit = 75;

// Value of a Base64 character, -1 for "=", -2 for anything outside the alphabet.
struct DecodeTable {
  int8_t value[256];
  constexpr DecodeTable() : value() {
    for (int i = 0; i < 256; ++i) value[i] = -2;
    for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
    value[static_cast<unsigned char>('=')] = -1;
  }
};
constexpr DecodeTable kDecode;

int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

size_t Base64Encode(const unsigned char* data, size_t len, char* out, size_t line_chars) {
  // Two output characters per 12 input bits, from one table lookup.
  static const struct PairTable {
    char pair[4096][2];
    PairTable() : pair() {
      for (int i = 0; i < 4096; ++i) {
        pair[i][0] = kAlphabet[i >> 6];
        pair[i][1] = kAlphabet[i & 63];
      }
    }
  } kPairs;
  char* d = out;
  size_t column = 0;
  size_t whole = len - len % 3;
  for (size_t i = 0; i < whole; i += 3) {
    uint32_t group = static_cast<uint32_t>(data[i]) << 16 | static_cast<uint32_t>(data[i + 1]) << 8 | data[i + 2];
    memcpy(d, kPairs.pair[group >> 12], 2);
    memcpy(d + 2, kPairs.pair[group & 4095], 2);
    d += 4;
    column += 4;
    if (line_chars != 0 && column >= line_chars) {
      *d++ = '\r';
      *d++ = '\n';
      column = 0;
    }
  }
  if (whole < len) {
    uint32_t group = static_cast<uint32_t>(data[whole]) << 16;
    if (whole + 1 < len) group |= static_cast<uint32_t>(data[whole + 1]) << 8;
    d[0] = kAlphabet[group >> 18];
    d[1] = kAlphabet[(group >> 12) & 63];
    d[2] = whole + 1 < len ? kAlphabet[(group >> 6) & 63] : '=';
    d[3] = '=';
    d += 4;
    column += 4;
  }
  if (line_chars != 0 && column >= line_chars) {  // a full last line, then the final CR LF
    *d++ = '\r';
    *d++ = '\n';
  }
  if (line_chars != 0) {
    *d++ = '\r';
    *d++ = '\n';
  }
  return static_cast<size_t>(d - out);
}

}  // namespace bexo_mail

using bexo_mail::Base64Chars;

char* to_base64(const unsigned char* data, size_t len, size_t* outlen) {
  constexpr size_t kLine = 60;
  if (len > (SIZE_MAX - 16) / 2) return nullptr;
  size_t chars = Base64Chars(len);
  size_t expected = chars + 2 * (chars / kLine) + 2;
  char* out = static_cast<char*>(malloc(expected + 1));
  if (out == nullptr) return nullptr;
  size_t written = bexo_mail::Base64Encode(data, len, out, kLine);
  if (written != expected) {
    free(out);
    return nullptr;
  }
  out[written] = '\0';
  if (outlen) *outlen = written;
  return out;
}

unsigned char* from_base64(const unsigned char* text, size_t len, size_t* outlen) {
  unsigned char* out = static_cast<unsigned char*>(malloc(len / 4 * 3 + 4));
  if (out == nullptr) return nullptr;
  unsigned char* d = out;
  int position = 0;  // place of the next character in its group of four
  uint32_t bits = 0;
  for (size_t i = 0; i < len; ++i) {
    int v = bexo_mail::kDecode.value[text[i]];
    if (v == -2) continue;
    if (v == -1) {
      // "=" pads the third place only when another "=" follows, or the fourth.
      if (position == 2 && i + 1 < len && text[i + 1] == '=') {
        position = 3;
      } else if (position == 3) {
        position = 0;
      } else {
        free(out);
        return nullptr;
      }
      continue;
    }
    bits = (bits << 6) | static_cast<uint32_t>(v);
    switch (position) {
      case 0:
        break;
      case 1:
        *d++ = static_cast<unsigned char>(bits >> 4);
        break;
      case 2:
        *d++ = static_cast<unsigned char>(bits >> 2);
        break;
      case 3:
        *d++ = static_cast<unsigned char>(bits);
        break;
    }
    position = (position + 1) & 3;
  }
  *d = '\0';
  if (outlen) *outlen = static_cast<size_t>(d - out);
  return out;
}

char* to_qprint(const unsigned char* data, size_t len, size_t* outlen) {
  // Every byte may take 3 characters and a soft break follows at least 73 of
  // them, so 4 per byte is enough. (The historical 3n + n/75 + 2 is not for
  // long runs of escaped bytes.)
  if (len > (SIZE_MAX - 8) / 4) return nullptr;
  char* out = static_cast<char*>(malloc(4 * len + 8));
  if (out == nullptr) return nullptr;
  char* d = out;
  int column = 0;
  auto soft_break = [&d] {
    *d++ = '=';
    *d++ = '\r';
    *d++ = '\n';
  };
  for (size_t i = 0; i < len; ++i) {
    unsigned char c = data[i];
    if (c == '\r' && i + 1 < len && data[i + 1] == '\n') {
      *d++ = '\r';
      *d++ = '\n';
      ++i;
      column = 0;
      continue;
    }
    bool space_before_cr = c == ' ' && i + 1 < len && data[i + 1] == '\r';
    if (iscntrl(c) || c == '=' || c > 126 || space_before_cr) {
      column += 3;
      if (column > bexo_mail::kQprintLineLimit) {
        soft_break();
        column = 3;
      }
      *d++ = '=';
      *d++ = bexo_mail::kHex[c >> 4];
      *d++ = bexo_mail::kHex[c & 15];
    } else {
      if (++column > bexo_mail::kQprintLineLimit) {
        soft_break();
        column = 1;
      }
      *d++ = static_cast<char>(c);
    }
  }
  *d = '\0';
  if (outlen) *outlen = static_cast<size_t>(d - out);
  return out;
}

unsigned char* from_qprint(unsigned char* text, size_t len, size_t* outlen) {
  text[len] = '\0';
  unsigned char* out = static_cast<unsigned char*>(malloc(len + 1));
  if (out == nullptr) return nullptr;
  unsigned char* d = out;
  unsigned char* after_text = d;  // just behind the last character that is not a space
  for (size_t i = 0; i < len; ++i) {
    unsigned char c = text[i];
    if (c == ' ') {
      *d++ = c;
      continue;
    }
    if (c == '\r') {
      d = after_text;  // trailing spaces before a line end are dropped
      *d++ = c;
      after_text = d;
      continue;
    }
    if (c != '=') {
      *d++ = c;
      after_text = d;
      continue;
    }
    if (i + 1 >= len) break;  // "=" at the very end ends the text
    if (text[i + 1] == '\r') {  // soft break: "=" CR LF or "=" CR
      i += (i + 2 < len && text[i + 2] == '\n') ? 2 : 1;
      after_text = d;
      continue;
    }
    int high = bexo_mail::HexValue(text[i + 1]);
    int low = i + 2 < len ? bexo_mail::HexValue(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      free(out);
      return nullptr;
    }
    *d++ = static_cast<unsigned char>(high << 4 | low);
    after_text = d;
    i += 2;
  }
  *d = '\0';
  if (outlen) *outlen = static_cast<size_t>(d - out);
  return out;
}
