// MIME encoded words (RFC 2047) of mail_cnvt: encode_str and decode_str.
#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "mail_cnvt.h"
#include "mail_cnvt_internal.h"

namespace {

constexpr unsigned char kEsc = 0x1b;
constexpr char kJisWordStart[] = "=?ISO-2022-JP?B?";
constexpr char kWordEnd[] = "?=";
constexpr const char* kPrefixes[] = {"=?ISO-2022-JP?B?", "=?ISO-2022-JP?Q?", "=?SHIFT_JIS?B?",
                                     "=?SHIFT_JIS?Q?",   "=?EUC-JP?B?",      "=?EUC-JP?Q?"};

// The output of encode_str and decode_str: grows in steps of 512 bytes.
class GrowBuffer {
 public:
  GrowBuffer() : data_(static_cast<char*>(malloc(kStep))), capacity_(data_ ? kStep : 0) {
    if (data_) data_[0] = '\0';
  }
  ~GrowBuffer() { free(data_); }
  GrowBuffer(const GrowBuffer&) = delete;
  GrowBuffer& operator=(const GrowBuffer&) = delete;

  bool ok() const { return data_ != nullptr; }

  bool Append(const char* s, size_t n) {
    if (data_ == nullptr) return false;
    if (used_ + n + 1 > capacity_) {
      size_t grown = capacity_ + (n / kStep + 1) * kStep;
      char* bigger = static_cast<char*>(realloc(data_, grown));
      if (bigger == nullptr) return false;
      data_ = bigger;
      capacity_ = grown;
    }
    memcpy(data_ + used_, s, n);
    used_ += n;
    data_[used_] = '\0';
    return true;
  }
  bool Append(const char* s) { return Append(s, strlen(s)); }

  // Hands the text to the caller.
  char* Release() {
    char* out = data_;
    data_ = nullptr;
    return out;
  }
  char* data() { return data_; }

 private:
  static constexpr size_t kStep = 512;
  char* data_;
  size_t capacity_;
  size_t used_ = 0;
};

char* Copy(const char* s) {
  size_t len = strlen(s);
  char* out = static_cast<char*>(malloc(len + 1));
  if (out) memcpy(out, s, len + 1);
  return out;
}

bool AppendBase64(GrowBuffer& out, const char* run, size_t len) {
  char* encoded = to_base64(reinterpret_cast<const unsigned char*>(run), len, nullptr);
  if (encoded == nullptr) return false;
  bool ok = out.Append(encoded) && out.Append(kWordEnd);
  free(encoded);
  return ok;
}

void RemoveLineBreaks(char* s) {
  char* d = s;
  for (; *s; ++s) {
    if (*s != '\r' && *s != '\n') *d++ = *s;
  }
  *d = '\0';
}

// Decodes the encoded text of one word; null when it does not decode.
unsigned char* DecodeWordText(const char* text, size_t len, bool base64) {
  if (base64) return from_base64(reinterpret_cast<const unsigned char*>(text), len, nullptr);
  unsigned char* copy = static_cast<unsigned char*>(malloc(len + 1));
  if (copy == nullptr) return nullptr;
  memcpy(copy, text, len);
  unsigned char* out = from_qprint(copy, len, nullptr);
  free(copy);
  return out;
}

}  // namespace

namespace bexo_mail {

size_t EncodedWordPrefixLength(const char* s) {
  for (const char* prefix : kPrefixes) {
    size_t n = strlen(prefix);
    if (strncasecmp(s, prefix, n) == 0) return n;
  }
  return 0;
}

}  // namespace bexo_mail

char* encode_str(char* text) {
  if (jp_func() == 1) return Copy(text);
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  GrowBuffer out;
  if (!out.ok()) return nullptr;
  size_t plain_start = 0;
  size_t run_start = 0;
  bool in_run = false;
  bool ok = true;
  size_t i = 0;
  // Only ESC $ B (or ESC $ J) opens a run here: deliberately narrower than detection.
  while (ok && s[i] != '\0') {
    if (s[i] == kEsc && s[i + 1] == '$' && (s[i + 2] & ~0x08) == 'B' && !in_run) {
      ok = out.Append(text + plain_start, i - plain_start) && out.Append(kJisWordStart);
      run_start = i;
      in_run = true;
      i += 3;
    } else if (s[i] == kEsc && s[i + 1] == '(' && s[i + 2] == 'B' && in_run) {
      i += 3;
      ok = AppendBase64(out, text + run_start, i - run_start);
      in_run = false;
      plain_start = i;
    } else {
      ++i;
    }
  }
  if (ok) {
    ok = in_run ? AppendBase64(out, text + run_start, i - run_start)
                : out.Append(text + plain_start, i - plain_start);
  }
  if (!ok) return nullptr;
  RemoveLineBreaks(out.data());
  return out.Release();
}

char* decode_str(char* text) {
  if (jp_func() == 1) return Copy(text);
  GrowBuffer out;
  if (!out.ok()) return nullptr;
  const char* s = text;
  while (*s != '\0') {
    const char* word = strchr(s, '=');
    while (word != nullptr && bexo_mail::EncodedWordPrefixLength(word) == 0) word = strchr(word + 1, '=');
    if (word == nullptr) {
      if (!out.Append(s)) return nullptr;
      break;
    }
    if (!out.Append(s, static_cast<size_t>(word - s))) return nullptr;
    // The charset letter after "=?" tells where the encoding letter and the text are.
    int letter = toupper(static_cast<unsigned char>(word[2]));
    int code = letter == 'I' ? 1 : letter == 'S' ? 2 : 3;
    size_t encoding_at = code == 1 ? 14 : code == 2 ? 12 : 9;
    const char* encoded = word + encoding_at + 2;
    const char* end = strstr(encoded, kWordEnd);
    if (end == nullptr) {
      if (!out.Append(word)) return nullptr;
      break;
    }
    bool base64 = toupper(static_cast<unsigned char>(word[encoding_at])) == 'B';
    unsigned char* decoded = DecodeWordText(encoded, static_cast<size_t>(end - encoded), base64);
    if (decoded == nullptr) return nullptr;
    // Written as decoded: toJIS passes every source but 4 through unchanged.
    char* passed = toJIS(reinterpret_cast<char*>(decoded), code);
    free(decoded);
    bool ok = passed != nullptr && out.Append(passed);
    free(passed);
    if (!ok) return nullptr;
    s = end + 2;
  }
  return out.Release();
}
