// Allocation-free text preparation for the record writers: a scrubbed view of
// an argument that copies only when the text needs cleaning, entity escaping
// into a bounded buffer, and the URL/path field helpers over string views.
//
// Thread safety: reentrant.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <time.h>

#include <string>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace bexo_report {
namespace report_text_internal {

// The offset of the first byte of `text` that ends it or needs scrubbing.
#ifdef __SSE2__
// Aligned 16-byte loads may read past the terminator, but never into the next
// page, so they cannot fault; the sanitizers would still call them overflows.
__attribute__((no_sanitize("address", "thread"))) inline size_t FirstSpecial(const char* text) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const char* block = reinterpret_cast<const char*>(address & ~uintptr_t{15});
  const __m128i zero = _mm_setzero_si128();
  const __m128i tab = _mm_set1_epi8('\t');
  const __m128i line_feed = _mm_set1_epi8('\n');
  unsigned keep = ~0u << (address & 15);  // the first block starts before `text`
  unsigned mask;
  for (;; block += 16, keep = ~0u) {
    __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
    __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, zero),
                                _mm_or_si128(_mm_cmpeq_epi8(bytes, tab), _mm_cmpeq_epi8(bytes, line_feed)));
    // The movemask of the bytes themselves marks those with the high bit set.
    mask = static_cast<unsigned>(_mm_movemask_epi8(hits) | _mm_movemask_epi8(bytes)) & keep;
    if (mask != 0) break;
  }
  return static_cast<size_t>(block + __builtin_ctz(mask) - text);
}
#else
// 0: plain byte, 1: end of text, 2: needs scrubbing (tab, line feed, high bit).
struct ByteClasses {
  unsigned char of[256];
  constexpr ByteClasses() : of() {
    of[0] = 1;
    of['\t'] = 2;
    of['\n'] = 2;
    for (int c = 0x80; c < 0x100; ++c) of[c] = 2;
  }
};
inline constexpr ByteClasses kByteClasses;

inline size_t FirstSpecial(const char* text) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  while (kByteClasses.of[*p] == 0) ++p;
  return static_cast<size_t>(p - reinterpret_cast<const unsigned char*>(text));
}
#endif

}  // namespace report_text_internal

// An argument after BEXOScrubbedString's cleaning. Clean text (the usual
// case) is viewed in place, so the source must outlive the field.
class ScrubbedField {
 public:
  // Inline: clean text, the usual case, costs one scan and no call.
  explicit ScrubbedField(const char* text) : source_(text ? text : "") {
    size_t clean = report_text_internal::FirstSpecial(source_);
    if (source_[clean] == '\0') {
      view_ = std::string_view(source_, clean);
    } else {
      Scrub();
    }
  }
  ScrubbedField(const ScrubbedField&) = delete;
  ScrubbedField& operator=(const ScrubbedField&) = delete;

  std::string_view view() const { return view_; }
  const char* c_str() const { return owned_.empty() ? source_ : owned_.c_str(); }
  bool empty() const { return view_.empty(); }

 private:
  void Scrub();  // copies the text and cleans the copy

  const char* source_;
  std::string_view view_;
  std::string owned_;
};

// A fixed buffer that keeps the first N bytes of what is appended and notes
// whether more was offered.
template <size_t N>
class BoundedText {
 public:
  void Append(const char* data, size_t length) {
    size_t room = N - length_;
    if (length > room) {
      length = room;
      truncated_ = true;
    }
    memcpy(data_ + length_, data, length);
    length_ += length;
  }
  bool full() const { return length_ == N; }
  void Clear() { length_ = 0, truncated_ = false; }
  std::string_view view() const { return std::string_view(data_, length_); }
  void SetLength(size_t length) { length_ = length; }

 private:
  char data_[N];
  size_t length_ = 0;
  bool truncated_ = false;
};

// The number of leading bytes that escaping leaves alone (none of & < > % CR).
size_t PlainPrefix(const char* text, size_t size);

// Escapes `text` as Descriptify_DecimalCode does, appending to `out` (a
// BoundedText or StringOut); stops early once a bounded output is full.
template <typename Out>
int DescriptifyTo(std::string_view text, bool strip, bool numeric, Out& out) {
  auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  auto starts = [&text](size_t at, std::string_view prefix) {
    return text.compare(at, prefix.size(), prefix) == 0;
  };
  int changed = 0;
  size_t run = 0;  // start of the bytes not yet appended
  const size_t size = text.size();
  for (size_t i = 0; i < size && !out.full(); ++i) {
    i += PlainPrefix(text.data() + i, size - i);
    if (i == size) break;
    char c = text[i];
    const char* replacement = nullptr;
    size_t skip = 1;
    if (c == '&') {
      if (starts(i, "&amp;") || starts(i, "&lt;") || starts(i, "&gt;") ||
          (numeric && i + 3 < size && text[i + 1] == '#' && is_digit(text[i + 2]) &&
           is_digit(text[i + 3]))) {
        continue;
      }
      replacement = "&amp;";
    } else if (c == '<') {
      replacement = "&lt;";
    } else if (c == '>') {
      replacement = "&gt;";
    } else if (c == '%') {
      if (!strip || i + 2 >= size || text[i + 1] != '3') continue;
      char k = text[i + 2];
      if (k != 'c' && k != 'C' && k != 'e' && k != 'E') continue;
      skip = 3;
    } else if (c == '\r') {
      replacement = "";
    } else {
      continue;
    }
    out.Append(text.data() + run, i - run);
    ++changed;
    if (replacement != nullptr && !strip) {
      out.Append(replacement, __builtin_strlen(replacement));
    }
    i += skip - 1;
    run = i + 1;
  }
  if (run < size) out.Append(text.data() + run, size - run);
  return changed;
}

// "Unknown" (or `fallback`) for an empty text.
inline std::string_view OrDefault(std::string_view text, std::string_view fallback) {
  return text.empty() ? fallback : text;
}

// getDomain: the part before the last "/", or the whole text.
std::string_view DomainOf(std::string_view text);
// getFilename: what follows the last "/", or "" / the whole path (see writers).
std::string_view FilenameOf(std::string_view path, std::string_view protocol);
// cutInvalidUTF8: the length kept of `text`.
size_t CutInvalidUTF8Length(std::string_view text);
// getPath before escaping: cut at "?", "/" when empty.
inline std::string_view PathPart(std::string_view text) {
  text = text.substr(0, text.find('?'));
  return text.empty() ? std::string_view("/") : text;
}
// getPath: PathPart, escaped.
template <typename Out>
void PathTo(std::string_view text, Out& out) {
  DescriptifyTo(PathPart(text), false, true, out);
}
// getUrl into a 1024-byte buffer: at most 1023 bytes and a terminator.
size_t UrlInto(std::string_view protocol, const char* host, int port, const char* path, char* out);
// getDate: "%Y-%m-%d %H:%M:%S%z" of `when` (cached per thread for the
// current second) into a 32-byte buffer; returns the length.
size_t DateInto(time_t when, char* out);
size_t CurrentDateInto(char* out);

// An adapter that lets DescriptifyTo append to a std::string.
struct StringOut {
  std::string& text;
  void Append(const char* data, size_t length) { text.append(data, length); }
  bool full() const { return false; }
};

}  // namespace bexo_report
