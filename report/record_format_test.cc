// RecordFormat against snprintf: every report format over many generated
// argument sets, with long fields, tabs, invalid UTF-8, empty texts, extreme
// numbers and buffers both roomy and too small.
#include "report/record_format.h"

#include <stdio.h>

#include <climits>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "report/report_formats.h"

namespace {

using bexo_report::FormatArg;
using bexo_report::RecordFormat;

// snprintf of one conversion such as "%.50s" or "%lld".
template <typename T>
std::string Printf(const std::string& conversion, T value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int length = snprintf(nullptr, 0, conversion.c_str(), value);
  std::string out(static_cast<size_t>(length) + 1, '\0');
  snprintf(&out[0], out.size(), conversion.c_str(), value);
#pragma GCC diagnostic pop
  out.pop_back();
  return out;
}

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

// Each format is split at its conversions; the expected line is the
// concatenation of snprintf of every piece, the actual one RecordFormat's.
TEST(RecordFormatTest, EveryFormatMatchesSnprintf) {
  static const int kEdgeInts[] = {0, 1, -1, 9, 10, INT_MAX, INT_MIN, 123456};
  static const long long kEdgeLongs[] = {0, -1, LLONG_MAX, LLONG_MIN, 10000000000LL};
  static const size_t kCapacities[] = {64, 512, 2048, 4096, 8192};
  std::mt19937 rng(1);
  for (int slot = 0; slot < bexo_report::kFormatCount; ++slot) {
    const std::string literal = bexo_report::kFormats[slot];
    SCOPED_TRACE(literal);
    RecordFormat format(literal.c_str());
    for (int round = 0; round < 300; ++round) {
      std::deque<std::string> texts;  // stable storage for the string_views
      std::vector<FormatArg> args;
      std::string expected;
      for (size_t i = 0; i < literal.size(); ++i) {
        if (literal[i] != '%') {
          expected += literal[i];
          continue;
        }
        size_t end = literal.find_first_of("sdu", i);
        std::string conversion = literal.substr(i, end - i + 1);
        i = end;
        unsigned long long wide = (static_cast<unsigned long long>(rng()) << 32) | rng();
        if (conversion.back() == 's') {
          texts.push_back(Text(rng));
          args.emplace_back(std::string_view(texts.back()));
          expected += Printf(conversion, texts.back().c_str());
        } else if (conversion == "%d") {
          int v = rng() % 3 ? static_cast<int>(rng()) : kEdgeInts[rng() % 8];
          args.emplace_back(v);
          expected += Printf(conversion, v);
        } else if (conversion == "%u") {
          unsigned v = rng() % 4 ? static_cast<unsigned>(rng()) : UINT_MAX;
          args.emplace_back(v);
          expected += Printf(conversion, v);
        } else if (conversion == "%lld") {
          long long v = rng() % 3 ? static_cast<long long>(wide) : kEdgeLongs[rng() % 5];
          args.emplace_back(v);
          expected += Printf(conversion, v);
        } else {
          ASSERT_EQ(conversion, "%llu");
          unsigned long long v = rng() % 3 ? wide : ULLONG_MAX;
          args.emplace_back(v);
          expected += Printf(conversion, v);
        }
      }
      std::vector<char> actual(kCapacities[rng() % 5], '#');
      ASSERT_EQ(format.Format(actual.data(), actual.size(), args.data(), args.size()),
                static_cast<long>(expected.size()));
      size_t shown = std::min(expected.size(), actual.size() - 1);
      ASSERT_EQ(std::string(actual.data(), shown), expected.substr(0, shown));
    }
  }
}

TEST(RecordFormatTest, MismatchedArgumentsAreRefused) {
  RecordFormat format("%s\t%d\n");
  char out[64];
  EXPECT_EQ(bexo_report::FormatLine(out, sizeof out, format, 1, 2), -1);
  EXPECT_EQ(bexo_report::FormatLine(out, sizeof out, format, std::string_view("a")), -1);
  EXPECT_EQ(bexo_report::FormatLine(out, sizeof out, format, std::string_view("a"), 2, 3), -1);
  EXPECT_EQ(bexo_report::FormatLine(out, sizeof out, RecordFormat("%x"), 1u), -1);
  EXPECT_EQ(bexo_report::FormatLine(out, sizeof out, format, std::string_view("a"), 2), 4);
  EXPECT_STREQ(out, "a\t2\n");
}

}  // namespace
