#include "report/report_text.h"

#include <stdint.h>
#include <string.h>
#include <time.h>

#include "BEXOScrubbedString.h"
#include "host_port.h"

namespace bexo_report {
namespace {

// Plain data, zero-initialised: no per-access initialisation check.
struct DateCache {
  bool valid;
  time_t second;
  size_t length;
  char text[32];
};
thread_local DateCache t_date_cache;

}  // namespace

void ScrubbedField::Scrub() {
  owned_ = source_;
  BEXOScrubbedString::Scrub(owned_, '\t', " ");
  BEXOScrubbedString::Scrub(owned_, '\n', " ");
  BEXOScrubbedString::ScrubInvalidUTF8(owned_);
  view_ = owned_;
}

namespace {

// The bytes escaping changes.
inline bool Escaped(char c) { return c == '&' || c == '<' || c == '>' || c == '%' || c == '\r'; }

size_t PlainBytes(const char* text, size_t size) {
  size_t i = 0;
  while (i < size && !Escaped(text[i])) ++i;
  return i;
}

#ifdef __SSE2__
// The same bytes, marked in a block.
inline unsigned EscapeMask(__m128i bytes) {
  const __m128i hits = _mm_or_si128(
      _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('<'))),
      _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('>')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('%'))),
                   _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r'))));
  return static_cast<unsigned>(_mm_movemask_epi8(hits));
}

// Unchecked by the sanitizers: PlainPrefix may read a short text's block
// past its end, never past its page.
__attribute__((no_sanitize("address", "thread"))) inline __m128i Load(const char* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}
#endif

}  // namespace

#ifdef __SSE2__
// Whole blocks, then the last bytes as one block that overlaps the one
// before. A text shorter than a block is loaded whole when that cannot cross
// into the next page (so it cannot fault; the sanitizers would still call the
// read an overflow) and the bytes past its end are masked off.
__attribute__((no_sanitize("address", "thread"))) size_t PlainPrefix(const char* text, size_t size) {
  constexpr uintptr_t kPage = 4096;
  if (size < 16) {
    // (An empty text may sit at the very start of an unreadable page.)
    if (size == 0 || (reinterpret_cast<uintptr_t>(text) & (kPage - 1)) > kPage - 16) return PlainBytes(text, size);
    const unsigned mask = EscapeMask(Load(text)) & ((1u << size) - 1);
    return mask != 0 ? static_cast<size_t>(__builtin_ctz(mask)) : size;
  }
  size_t i = 0;
  for (; i + 16 <= size; i += 16) {
    const unsigned mask = EscapeMask(Load(text + i));
    if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
  }
  if (i == size) return size;
  const unsigned mask = EscapeMask(Load(text + size - 16)) >> (i - (size - 16));
  return mask != 0 ? i + static_cast<size_t>(__builtin_ctz(mask)) : size;
}
#else
size_t PlainPrefix(const char* text, size_t size) { return PlainBytes(text, size); }
#endif

namespace {

size_t LastSlash(std::string_view text) {
  const void* found = memrchr(text.data(), '/', text.size());
  return found ? static_cast<size_t>(static_cast<const char*>(found) - text.data()) : std::string_view::npos;
}

}  // namespace

std::string_view DomainOf(std::string_view text) {
  size_t slash = LastSlash(text);
  return slash == std::string_view::npos ? text : text.substr(0, slash);
}

std::string_view FilenameOf(std::string_view path, std::string_view protocol) {
  size_t slash = LastSlash(path);
  if (slash != std::string_view::npos && slash + 1 < path.size()) return path.substr(slash + 1);
  bool ftp = protocol.size() == 3 && strncasecmp(protocol.data(), "FTP", 3) == 0;
  if (!ftp && memchr(path.data(), '.', path.size()) == nullptr) return std::string_view();
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
  if (!cache.valid || cache.second != when) {
    struct tm local;
    localtime_r(&when, &local);
    cache.length = strftime(cache.text, sizeof cache.text, "%Y-%m-%d %H:%M:%S%z", &local);
    cache.second = when;
    cache.valid = true;
  }
  memcpy(out, cache.text, cache.length + 1);
  return cache.length;
}

size_t CurrentDateInto(char* out) { return DateInto(time(nullptr), out); }

}  // namespace bexo_report
