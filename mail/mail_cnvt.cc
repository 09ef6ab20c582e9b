// Japanese encoding detection and conversion out of ISO-2022-JP.
#include "mail_cnvt.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <atomic>

#include "mail_cnvt_internal.h"

int _kanji = 3;

namespace {

constexpr unsigned char kEsc = 0x1b;
std::atomic<int> jp_func_cache{-1};

// Shift of an escape sequence starting at s (ESC included), or kNoShift.
enum Shift { kNoShift, kToKanji, kToRoman, kToKatakana };

Shift EscapeShift(const unsigned char* s) {
  if (s[0] != kEsc) return kNoShift;
  if (s[1] == '$' && (s[2] == 'B' || s[2] == '@')) return kToKanji;
  if (s[1] == '(' && (s[2] == 'B' || s[2] == 'J')) return kToRoman;
  if (s[1] == '(' && s[2] == 'I') return kToKatakana;
  return kNoShift;
}

bool InRange(unsigned char c, unsigned char low, unsigned char high) { return c >= low && c <= high; }

char* CopyInto(const char* s, size_t capacity) {
  char* out = static_cast<char*>(malloc(capacity));
  if (out != nullptr) memcpy(out, s, strlen(s) + 1);
  return out;
}

// Scan 1: escapes, encoded words and EUC-JP pairs.
struct EucScan {
  int result = 0;
  int pairs = 0;
  bool invalid = false;
};

EucScan ScanEuc(const unsigned char* s) {
  EucScan scan;
  for (size_t i = 0; s[i] != '\0';) {
    unsigned char c = s[i];
    if (c == kEsc) {
      if (EscapeShift(s + i) != kNoShift) scan.result = 1;
      ++i;
    } else if (c == '=') {
      const char* word = reinterpret_cast<const char*>(s + i);
      if (scan.result == 0 && s[i + 1] == '?' && bexo_mail::EncodedWordPrefixLength(word) > 0) {
        scan.result = 4;
      }
      ++i;
    } else if (c & 0x80) {
      unsigned char next = s[i + 1];
      bool pair = (c == 0x8e && InRange(next, 0xa1, 0xdf)) || (InRange(c, 0xa1, 0xfe) && InRange(next, 0xa1, 0xfe));
      if (!pair) {
        scan.invalid = true;
        break;
      }
      ++scan.pairs;
      scan.result = 3;
      i += 2;
    } else {
      ++i;
    }
  }
  return scan;
}

// Scan 2: Shift_JIS pairs and half-width katakana.
struct SjisScan {
  int pairs = 0;
  int katakana = 0;
  bool invalid = false;
};

SjisScan ScanSjis(const unsigned char* s) {
  SjisScan scan;
  for (size_t i = 0; s[i] != '\0';) {
    unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
    } else if (InRange(c, 0x81, 0x9f) || InRange(c, 0xe0, 0xfc)) {
      unsigned char next = s[i + 1];
      if (!(InRange(next, 0x40, 0x7e) || InRange(next, 0x80, 0xfc))) {
        scan.invalid = true;
        break;
      }
      ++scan.pairs;
      i += 2;
    } else if (InRange(c, 0xa1, 0xdf)) {
      ++scan.katakana;
      ++i;
    } else {
      scan.invalid = true;
      break;
    }
  }
  return scan;
}

void JisPairToSjis(unsigned char j1, unsigned char j2, char* out) {
  unsigned first = ((j1 + 1u) >> 1) + (j1 <= 0x5e ? 0x70u : 0xb0u);
  unsigned second;
  if (j1 & 1) {
    second = j2 + (j2 < 0x60 ? 0x1fu : 0x20u);
  } else {
    second = j2 + 0x7eu;
  }
  out[0] = static_cast<char>(first & 0xff);
  out[1] = static_cast<char>(second & 0xff);
}

}  // namespace

namespace bexo_mail {

void ResetJpFuncForTesting() { jp_func_cache.store(-1, std::memory_order_relaxed); }

}  // namespace bexo_mail

int jp_func() {
  int cached = jp_func_cache.load(std::memory_order_relaxed);
  if (cached >= 0) return cached;
  const char* value = getenv("JP_FUNC");
  int off = (value != nullptr && strcasecmp(value, "no") == 0) ? 1 : 0;
  jp_func_cache.store(off, std::memory_order_relaxed);
  return off;
}

int AutoDetect(const char* text) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  EucScan euc = ScanEuc(s);
  if (!euc.invalid && euc.pairs > 0) return 3;
  SjisScan sjis = ScanSjis(s);
  if (!sjis.invalid && (sjis.pairs > 0 || sjis.katakana > 0)) return 2;
  if (euc.pairs == 0 && sjis.pairs == 0 && sjis.katakana == 0) return euc.result;
  // Ten good EUC-JP pairs outweigh one stray byte; one invalid Shift_JIS
  // byte costs as much as ten pairs.
  int e = 2 * (euc.invalid ? euc.pairs - 10 : euc.pairs);
  int s_weight = sjis.katakana + 2 * sjis.pairs - (sjis.invalid ? 20 : 0);
  if (e >= 0 && e >= s_weight && euc.invalid) return 3;
  if (s_weight < 0 || s_weight < e) return 0;
  return sjis.invalid ? 2 : 0;
}

char* fromJIS(char* text, int target) {
  if (target == 4) return encode_str(text);
  size_t len = strlen(text);
  if (target == 1 || jp_func() == 1 || (target != 2 && target != 3 && target != 5)) {
    return CopyInto(text, len + 1);
  }
  char* out = static_cast<char*>(malloc(2 * len + 1));
  if (out == nullptr) return nullptr;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  char* d = out;
  Shift state = kToRoman;
  for (size_t i = 0; i < len;) {
    Shift shift = EscapeShift(s + i);
    if (shift != kNoShift) {
      state = shift;
      i += 3;
      continue;
    }
    unsigned char c = s[i];
    if (state == kToKanji) {
      if (i + 1 >= len) break;  // half a pair at the end
      if (target == 2) {
        JisPairToSjis(c, s[i + 1], d);
      } else if (target == 3) {
        d[0] = static_cast<char>(c | 0x80);
        d[1] = static_cast<char>(s[i + 1] | 0x80);
      } else {
        d[0] = d[1] = '?';
      }
      d += 2;
      i += 2;
    } else if (state == kToKatakana) {
      if (target == 3) *d++ = static_cast<char>(0x8e);
      *d++ = target == 5 ? '?' : static_cast<char>(c | 0x80);
      ++i;
    } else {
      *d++ = static_cast<char>(c);
      ++i;
    }
  }
  *d = '\0';
  return out;
}

char* toJIS(char* s, int source) {
  if (source == 4) return decode_str(s);
  return CopyInto(s, 8 * strlen(s) + 1);
}

char* fromANY(char* s, int target) {
  if (*s == '\0') return toJIS(s, target);
  int code = AutoDetect(s);
  if (code == target) return CopyInto(s, strlen(s) + 1);
  char* intermediate;
  if (code == 4) {
    intermediate = decode_str(s);
  } else if (code == 1) {
    intermediate = fromJIS(s, target);
  } else {
    intermediate = toJIS(s, code);
  }
  if (intermediate == nullptr || target == 1) return intermediate;
  char* out = fromJIS(intermediate, target);
  free(intermediate);
  return out;
}

char* toKNJ(char* s, int source) {
  char* jis = toJIS(s, source);
  if (jis == nullptr) return nullptr;
  char* out = fromJIS(jis, _kanji);
  free(jis);
  return out;
}

char* fromKNJ(char* s, int target) {
  char* jis = toJIS(s, _kanji);
  if (jis == nullptr) return nullptr;
  char* out = fromJIS(jis, target);
  free(jis);
  return out;
}
