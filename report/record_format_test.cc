// Record lines against snprintf: every report layout over many generated
// argument sets (long fields, tabs, invalid UTF-8, '%', empty texts, extreme
// numbers), through the roomy writer and through the bounded one with
// buffers both roomy and too small.
#include "report/record_format.h"

#include <stdio.h>

#include <climits>
#include <deque>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using bexo_report::Conversion;
using bexo_report::FormatSlot;
using bexo_report::kLayout;

// Texts of every interesting length (empty, around the precisions, far
// beyond them) with tabs, high bytes and '%' mixed in.
std::string Text(std::mt19937& rng) {
  static const size_t kLengths[] = {0, 1, 7, 31, 32, 33, 49, 50, 51, 63, 64, 65, 99, 100, 101, 127, 128,
                                    129, 255, 256, 257, 299, 300, 301, 1023, 1024, 1025, 3000, 7000};
  size_t length = kLengths[rng() % (sizeof kLengths / sizeof kLengths[0])];
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    unsigned r = rng() % 100;
    text += r < 3   ? '\t'
            : r < 6 ? static_cast<char>(0x80 + rng() % 0x80)
            : r < 8 ? '%'
                    : static_cast<char>('a' + rng() % 26);
  }
  return text;
}

unsigned long long Wide(std::mt19937& rng) { return (static_cast<unsigned long long>(rng()) << 32) | rng(); }

template <Conversion kKind>
auto Field(std::mt19937& rng, std::deque<std::string>& texts) {
  static const int kEdgeInts[] = {0, 1, -1, 9, 10, INT_MAX, INT_MIN, 123456};
  static const long long kEdgeLongs[] = {0, -1, LLONG_MAX, LLONG_MIN, 10000000000LL};
  if constexpr (kKind == Conversion::kText) {
    texts.push_back(Text(rng));
    return std::string_view(texts.back());
  } else if constexpr (kKind == Conversion::kInt) {
    return rng() % 3 ? static_cast<int>(rng()) : kEdgeInts[rng() % 8];
  } else if constexpr (kKind == Conversion::kUnsigned) {
    return rng() % 4 ? static_cast<unsigned>(rng()) : UINT_MAX;
  } else if constexpr (kKind == Conversion::kLongLong) {
    return rng() % 3 ? static_cast<long long>(Wide(rng)) : kEdgeLongs[rng() % 5];
  } else {
    return rng() % 3 ? Wide(rng) : ULLONG_MAX;
  }
}

// What printf takes for a field: the texts view whole strings, so their data
// is NUL-terminated.
template <typename T>
T Printable(T value) {
  return value;
}
const char* Printable(std::string_view text) { return text.data(); }

template <typename... Args>
std::string Snprintf(const char* format, Args... args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int length = snprintf(nullptr, 0, format, Printable(args)...);
  std::string out(static_cast<size_t>(length) + 1, '\0');
  snprintf(&out[0], out.size(), format, Printable(args)...);
#pragma GCC diagnostic pop
  out.pop_back();
  return out;
}

template <FormatSlot kSlot, size_t... kIndex>
void CheckLayout(std::mt19937& rng, std::index_sequence<kIndex...>) {
  static const size_t kCapacities[] = {0, 1, 64, 512, 2048, 4096, 8192};
  SCOPED_TRACE(bexo_report::kFormats[kSlot]);
  for (int round = 0; round < 300; ++round) {
    std::deque<std::string> texts;  // references stay valid as it grows
    // Braced initialisation evaluates left to right: the fields draw from
    // the generator in order.
    const std::tuple<decltype(Field<kLayout<kSlot>.steps[kIndex].kind>(rng, texts))...> args{
        Field<kLayout<kSlot>.steps[kIndex].kind>(rng, texts)...};
    const std::string expected = Snprintf(bexo_report::kFormats[kSlot], std::get<kIndex>(args)...);

    const size_t bound = bexo_report::LineBound<kSlot>(std::get<kIndex>(args)...);
    ASSERT_GE(bound, expected.size());
    std::vector<char> roomy(bound + 1, '#');
    char* end = bexo_report::WriteLine<kSlot>(roomy.data(), std::get<kIndex>(args)...);
    ASSERT_EQ(std::string(roomy.data(), end), expected);
    ASSERT_EQ(roomy[bound], '#');

    const size_t capacity = kCapacities[rng() % (sizeof kCapacities / sizeof kCapacities[0])];
    std::vector<char> bounded(capacity + 1, '#');
    ASSERT_EQ(bexo_report::FormatBounded<kSlot>(bounded.data(), capacity, std::get<kIndex>(args)...),
              expected.size());
    const size_t shown = std::min(expected.size(), capacity);
    ASSERT_EQ(std::string(bounded.data(), shown), expected.substr(0, shown));
    ASSERT_EQ(bounded[capacity], '#') << "wrote past the capacity";
  }
}

template <int... kSlots>
void CheckEveryLayout(std::integer_sequence<int, kSlots...>) {
  std::mt19937 rng(1);
  (CheckLayout<static_cast<FormatSlot>(kSlots)>(
       rng, std::make_index_sequence<kLayout<static_cast<FormatSlot>(kSlots)>.count>()),
   ...);
}

TEST(RecordFormatTest, EveryLayoutMatchesSnprintf) {
  CheckEveryLayout(std::make_integer_sequence<int, bexo_report::kFormatCount>());
}

// Formats outside the dialect are refused when the writers are compiled.
static_assert(!bexo_report::ParseLayout("%x").valid);
static_assert(!bexo_report::ParseLayout("100%%").valid);
static_assert(!bexo_report::ParseLayout("%ld").valid);
static_assert(bexo_report::ParseLayout("%.50s\t%llu\n").count == 2);

}  // namespace
