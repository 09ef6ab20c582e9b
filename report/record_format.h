// RecordFormat: produces exactly the bytes of snprintf for the small printf
// dialect of the report records ("%s", "%.Ns", "%d", "%u", "%lld", "%llu",
// "%%"), several times faster: the format is parsed once and text arguments
// carry their length. FormatLine checks the argument types against the
// format in every build.
//
// Thread safety: a RecordFormat is immutable after construction.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>
#include <vector>

namespace bexo_report {

struct FormatArg {
  enum Kind : uint8_t { kText, kInt, kUnsigned, kLongLong, kUnsignedLongLong };

  FormatArg(std::string_view value) : kind(kText), text(value) {}  // NOLINT: implicit by design
  FormatArg(int value) : kind(kInt), number(value) {}            // NOLINT
  FormatArg(unsigned value) : kind(kUnsigned), number(value) {}  // NOLINT
  FormatArg(long long value) : kind(kLongLong), number(static_cast<unsigned long long>(value)) {}  // NOLINT
  FormatArg(unsigned long long value) : kind(kUnsignedLongLong), number(value) {}  // NOLINT

  Kind kind;
  std::string_view text;
  unsigned long long number = 0;
};

class RecordFormat {
 public:
  explicit RecordFormat(const char* format);

  // Writes at most `capacity` bytes (no terminator) and returns the length
  // snprintf would report, or -1 when the arguments do not match the format.
  long Format(char* out, size_t capacity, const FormatArg* args, size_t count) const;

 private:
  // One conversion and the literal text before it (a lone tab, mostly).
  struct Op {
    FormatArg::Kind kind;
    uint32_t literal_offset;  // in literals_
    uint32_t literal_length;
    uint32_t precision;  // text: maximum bytes; UINT32_MAX for plain "%s"
  };
  std::vector<Op> ops_;
  std::vector<char> literals_;
  uint32_t tail_offset_ = 0;  // the literal after the last conversion
  uint32_t tail_length_ = 0;
  bool valid_ = true;
};

// Formats into `out` (capacity bytes) and NUL-terminates when there is room.
// Returns the full length, or -1 on a mismatch; the caller drops the record
// when the result is not below the capacity, as it would with snprintf.
template <typename... Args>
long FormatLine(char* out, size_t capacity, const RecordFormat& format, const Args&... args) {
  const FormatArg list[] = {FormatArg(args)...};
  long length = format.Format(out, capacity, list, sizeof...(Args));
  if (length >= 0 && static_cast<size_t>(length) < capacity) out[length] = '\0';
  return length;
}

}  // namespace bexo_report
