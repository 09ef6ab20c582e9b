// Record lines from the printf formats of the report layouts, byte for byte
// what snprintf would give for the small dialect they use ("%s", "%.Ns",
// "%d", "%u", "%lld", "%llu"). Each format is parsed at compile time, so a
// line is written by straight-line code: the tabs between fields are constant
// stores and every field is one bounded copy or one number conversion.
// Argument types are checked against the format when the call is compiled.
//
// Thread safety: stateless.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>
#include <type_traits>
#include <utility>

#include "report/report_formats.h"

namespace bexo_report {

enum class Conversion : uint8_t { kText, kInt, kUnsigned, kLongLong, kUnsignedLongLong };

struct ConversionStep {
  Conversion kind;
  uint32_t precision;  // text: maximum bytes; UINT32_MAX for plain "%s"
  // The literal text before the conversion, as offset and length in the format.
  uint32_t literal_begin;
  uint32_t literal_length;
};

struct Layout {
  static constexpr size_t kMaxSteps = 32;
  ConversionStep steps[kMaxSteps];
  size_t count;
  uint32_t tail_begin;  // the literal after the last conversion
  uint32_t tail_length;
  size_t fixed_bytes;  // literal bytes plus the widest text of every number
  bool valid;          // false for anything outside the dialect (or "%%")
};

constexpr Layout ParseLayout(const char* format) {
  Layout layout{};
  layout.valid = true;
  uint32_t literal_begin = 0;
  uint32_t i = 0;
  while (format[i] != '\0') {
    if (format[i] != '%') {
      ++i;
      continue;
    }
    const uint32_t literal_end = i++;
    uint32_t precision = UINT32_MAX;
    if (format[i] == '.') {
      precision = 0;
      for (++i; format[i] >= '0' && format[i] <= '9'; ++i) precision = precision * 10 + (format[i] - '0');
    }
    Conversion kind = Conversion::kText;
    if (format[i] == 's') {
      i += 1;
    } else if (format[i] == 'd' || format[i] == 'u') {
      kind = format[i] == 'd' ? Conversion::kInt : Conversion::kUnsigned;
      i += 1;
    } else if (format[i] == 'l' && format[i + 1] == 'l' && (format[i + 2] == 'd' || format[i + 2] == 'u')) {
      kind = format[i + 2] == 'd' ? Conversion::kLongLong : Conversion::kUnsignedLongLong;
      i += 3;
    } else {
      layout.valid = false;
      return layout;
    }
    if (layout.count == Layout::kMaxSteps) {
      layout.valid = false;
      return layout;
    }
    layout.steps[layout.count++] = ConversionStep{kind, precision, literal_begin, literal_end - literal_begin};
    layout.fixed_bytes += literal_end - literal_begin + (kind == Conversion::kText ? 0 : 20);
    literal_begin = i;
  }
  layout.tail_begin = literal_begin;
  layout.tail_length = i - literal_begin;
  layout.fixed_bytes += layout.tail_length;
  return layout;
}

template <FormatSlot kSlot>
inline constexpr Layout kLayout = ParseLayout(kFormats[kSlot]);

namespace record_format_internal {

// Fields are mostly a few bytes long: fixed-size moves beat a memcpy call.
// Inlined into a writer, GCC checks every branch against the source's array
// size, including branches for lengths that array cannot have.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wstringop-overread"
#pragma GCC diagnostic ignored "-Wstringop-overflow"
#endif
[[gnu::always_inline]] inline void CopyBytes(char* out, const char* data, size_t length) {
  if (length > 16 && length <= 32) {
    char head[16], tail[16];
    memcpy(head, data, 16);
    memcpy(tail, data + length - 16, 16);
    memcpy(out, head, 16);
    memcpy(out + length - 16, tail, 16);
  } else if (length >= 8 && length <= 16) {
    uint64_t head, tail;
    memcpy(&head, data, 8);
    memcpy(&tail, data + length - 8, 8);
    memcpy(out, &head, 8);
    memcpy(out + length - 8, &tail, 8);
  } else if (length >= 4 && length < 8) {
    uint32_t head, tail;
    memcpy(&head, data, 4);
    memcpy(&tail, data + length - 4, 4);
    memcpy(out, &head, 4);
    memcpy(out + length - 4, &tail, 4);
  } else if (length < 4) {
    if (length > 0) out[0] = data[0];
    if (length > 1) out[1] = data[1];
    if (length > 2) out[2] = data[2];
  } else {
    memcpy(out, data, length);
  }
}
#pragma GCC diagnostic pop

// Writes into room the caller has made for the line's bound.
struct RoomyOut {
  char* end;
  [[gnu::always_inline]] void Put(const char* data, size_t length) {
    CopyBytes(end, data, length);
    end += length;
  }
};

// Keeps the first `capacity` bytes and counts them all, as snprintf does.
struct BoundedOut {
  char* out;
  size_t capacity;
  size_t length = 0;
  void Put(const char* data, size_t count) {
    if (length + count <= capacity) {
      CopyBytes(out + length, data, count);
    } else if (length < capacity) {
      memcpy(out + length, data, capacity - length);
    }
    length += count;
  }
};

template <typename T>
constexpr Conversion KindOf() {
  using Type = std::decay_t<T>;
  static_assert(std::is_same_v<Type, std::string_view> || std::is_same_v<Type, int> ||
                    std::is_same_v<Type, unsigned> || std::is_same_v<Type, long long> ||
                    std::is_same_v<Type, unsigned long long>,
                "record fields are string_view, int, unsigned, long long or unsigned long long");
  if constexpr (std::is_same_v<Type, std::string_view>) return Conversion::kText;
  if constexpr (std::is_same_v<Type, int>) return Conversion::kInt;
  if constexpr (std::is_same_v<Type, unsigned>) return Conversion::kUnsigned;
  if constexpr (std::is_same_v<Type, long long>) return Conversion::kLongLong;
  return Conversion::kUnsignedLongLong;
}

// Two digits a step: "00" to "99".
inline constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the digits of `value` so that they end at `end`; returns the first.
inline char* DigitsBefore(char* end, unsigned long long value) {
  while (value >= 100) {
    end -= 2;
    memcpy(end, kDigitPairs + (value % 100) * 2, 2);
    value /= 100;
  }
  if (value >= 10) {
    end -= 2;
    memcpy(end, kDigitPairs + value * 2, 2);
  } else {
    *--end = static_cast<char>('0' + value);
  }
  return end;
}

inline size_t DigitCount(unsigned long long value) {
  size_t count = 1;
  for (; value >= 10; value /= 10) ++count;
  return count;
}

// In place: the room for the line's bound is there.
[[gnu::always_inline]] inline void PutNumber(RoomyOut& out, unsigned long long magnitude, bool negative) {
  if (negative) *out.end++ = '-';
  out.end += DigitCount(magnitude);
  DigitsBefore(out.end, magnitude);
}

inline void PutNumber(BoundedOut& out, unsigned long long magnitude, bool negative) {
  char digits[24];
  char* first = DigitsBefore(digits + sizeof digits, magnitude);
  if (negative) *--first = '-';
  out.Put(first, static_cast<size_t>(digits + sizeof digits - first));
}

template <FormatSlot kSlot, size_t kIndex, typename Out, typename Arg>
inline void PutStep(Out& out, const Arg& arg) {
  constexpr ConversionStep step = kLayout<kSlot>.steps[kIndex];
  static_assert(KindOf<Arg>() == step.kind, "argument type does not match its conversion");
  out.Put(kFormats[kSlot] + step.literal_begin, step.literal_length);
  if constexpr (step.kind == Conversion::kText) {
    out.Put(arg.data(), arg.size() < step.precision ? arg.size() : step.precision);
  } else if constexpr (step.kind == Conversion::kInt || step.kind == Conversion::kLongLong) {
    const long long value = arg;
    const unsigned long long magnitude = static_cast<unsigned long long>(value);
    PutNumber(out, value < 0 ? 0ULL - magnitude : magnitude, value < 0);
  } else {
    PutNumber(out, static_cast<unsigned long long>(arg), false);
  }
}

template <FormatSlot kSlot, typename Out, size_t... kIndex, typename... Args>
inline void PutLine(Out& out, std::index_sequence<kIndex...>, const Args&... args) {
  static_assert(kLayout<kSlot>.valid, "the format is outside the record dialect");
  static_assert(kLayout<kSlot>.count == sizeof...(Args), "one argument per conversion");
  (PutStep<kSlot, kIndex>(out, args), ...);
  out.Put(kFormats[kSlot] + kLayout<kSlot>.tail_begin, kLayout<kSlot>.tail_length);
}

template <FormatSlot kSlot, size_t kIndex, typename Arg>
constexpr size_t TextBytes(const Arg& arg) {
  if constexpr (KindOf<Arg>() == Conversion::kText) {
    constexpr uint32_t precision = kLayout<kSlot>.steps[kIndex].precision;
    return arg.size() < precision ? arg.size() : precision;
  } else {
    return 0;
  }
}

template <FormatSlot kSlot, size_t... kIndex, typename... Args>
inline size_t Bound(std::index_sequence<kIndex...>, const Args&... args) {
  return kLayout<kSlot>.fixed_bytes + (size_t{0} + ... + TextBytes<kSlot, kIndex>(args));
}

}  // namespace record_format_internal

// The most bytes the line can take: its literals, each text as cut by its
// precision and 20 bytes for each number.
template <FormatSlot kSlot, typename... Args>
size_t LineBound(const Args&... args) {
  return record_format_internal::Bound<kSlot>(std::index_sequence_for<Args...>(), args...);
}

// Writes the line into `out`, which has room for LineBound bytes; returns the
// line's end. No terminator is added.
template <FormatSlot kSlot, typename... Args>
char* WriteLine(char* out, const Args&... args) {
  record_format_internal::RoomyOut sink{out};
  record_format_internal::PutLine<kSlot>(sink, std::index_sequence_for<Args...>(), args...);
  return sink.end;
}

// snprintf's contract without the terminator: writes at most `capacity`
// bytes and returns the length of the whole line.
template <FormatSlot kSlot, typename... Args>
size_t FormatBounded(char* out, size_t capacity, const Args&... args) {
  record_format_internal::BoundedOut sink{out, capacity};
  record_format_internal::PutLine<kSlot>(sink, std::index_sequence_for<Args...>(), args...);
  return sink.length;
}

}  // namespace bexo_report
