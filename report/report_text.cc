#include "report/report_text.h"

#include <string.h>
#include <time.h>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "BEXOScrubbedString.h"
#include "host_port.h"

namespace bexo_report {
namespace {

struct DateCache {
  time_t second = -1;
  size_t length = 0;
  char text[32];
};
thread_local DateCache t_date_cache;

// The offset of the first byte of `text` that ends it or needs scrubbing.
#ifdef __SSE2__
// Aligned 16-byte loads may read past the terminator, but never into the next
// page, so they cannot fault; the sanitizers would still call them overflows.
__attribute__((no_sanitize("address", "thread"))) size_t FirstSpecial(const char* text) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(text);
  const char* block = reinterpret_cast<const char*>(address & ~uintptr_t{15});
  const __m128i zero = _mm_setzero_si128();
  const __m128i tab = _mm_set1_epi8('\t');
  const __m128i line_feed = _mm_set1_epi8('\n');
  auto special = [&](const char* at) {
    __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(at));
    __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, zero),
                                _mm_or_si128(_mm_cmpeq_epi8(bytes, tab), _mm_cmpeq_epi8(bytes, line_feed)));
    // movemask of the bytes themselves gives the high-bit ones.
    return static_cast<unsigned>(_mm_movemask_epi8(hits) | _mm_movemask_epi8(bytes));
  };
  unsigned mask = special(block) & (~0u << (address & 15));
  while (mask == 0) {
    block += 16;
    mask = special(block);
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
constexpr ByteClasses kByteClasses;

size_t FirstSpecial(const char* text) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  while (kByteClasses.of[*p] == 0) ++p;
  return static_cast<size_t>(p - reinterpret_cast<const unsigned char*>(text));
}
#endif

}  // namespace

ScrubbedField::ScrubbedField(const char* text) : source_(text ? text : "") {
  size_t clean = FirstSpecial(source_);
  if (source_[clean] == '\0') {
    view_ = std::string_view(source_, clean);
    return;
  }
  owned_ = source_;
  BEXOScrubbedString::Scrub(owned_, '\t', " ");
  BEXOScrubbedString::Scrub(owned_, '\n', " ");
  BEXOScrubbedString::ScrubInvalidUTF8(owned_);
  view_ = owned_;
}

size_t PlainPrefix(const char* text, size_t size) {
  size_t i = 0;
#ifdef __SSE2__
  const __m128i amp = _mm_set1_epi8('&'), lt = _mm_set1_epi8('<'), gt = _mm_set1_epi8('>');
  const __m128i percent = _mm_set1_epi8('%'), cr = _mm_set1_epi8('\r');
  for (; i + 16 <= size; i += 16) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    __m128i hits = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(bytes, amp), _mm_cmpeq_epi8(bytes, lt)),
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, gt), _mm_cmpeq_epi8(bytes, percent)),
                     _mm_cmpeq_epi8(bytes, cr)));
    unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
  }
#endif
  for (; i < size; ++i) {
    char c = text[i];
    if (c == '&' || c == '<' || c == '>' || c == '%' || c == '\r') break;
  }
  return i;
}

std::string_view DomainOf(std::string_view text) {
  size_t slash = text.rfind('/');
  return slash == std::string_view::npos ? text : text.substr(0, slash);
}

std::string_view FilenameOf(std::string_view path, std::string_view protocol) {
  size_t slash = path.rfind('/');
  if (slash != std::string_view::npos && slash + 1 < path.size()) return path.substr(slash + 1);
  bool ftp = protocol.size() == 3 && strncasecmp(protocol.data(), "FTP", 3) == 0;
  if (path.find('.') == std::string_view::npos && !ftp) return std::string_view();
  return path;
}

size_t CutInvalidUTF8Length(std::string_view text) {
  constexpr size_t kLimit = 1023;
  if (text.size() < kLimit) return text.size();
  size_t length = kLimit;
  // Back off over a trailing character whose bytes run past the limit.
  for (size_t back = 1; back <= 4 && back <= length; ++back) {
    unsigned char c = static_cast<unsigned char>(text[length - back]);
    if ((c & 0xC0) == 0x80) continue;  // continuation byte: keep looking for the lead
    size_t needed = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 1;
    if (needed > back) length -= back;
    break;
  }
  while (length > 0 && text[length - 1] == '\\') --length;
  return length;
}

size_t UrlInto(std::string_view protocol, const char* host, int port, const char* path, char* out) {
  constexpr size_t kSize = 1024;
  char joined[kSize];
  size_t joined_length = JoinHostPort(host, port, joined, sizeof joined);
  size_t length = 0;
  auto append = [&](const char* data, size_t n) {
    size_t room = kSize - 1 - length;
    if (n > room) n = room;
    memcpy(out + length, data, n);
    length += n;
  };
  append(protocol.data(), protocol.size());
  append("://", 3);
  append(joined, joined_length);
  if (path != nullptr) {
    if (path[0] != '/') append("/", 1);
    append(path, strlen(path));
  }
  out[length] = '\0';
  return length;
}

size_t DateInto(time_t when, char* out) {
  DateCache& cache = t_date_cache;
  if (cache.second != when) {
    struct tm local;
    localtime_r(&when, &local);
    cache.length = strftime(cache.text, sizeof cache.text, "%Y-%m-%d %H:%M:%S%z", &local);
    cache.second = when;
  }
  memcpy(out, cache.text, cache.length + 1);
  return cache.length;
}

size_t CurrentDateInto(char* out) { return DateInto(time(nullptr), out); }

}  // namespace bexo_report
