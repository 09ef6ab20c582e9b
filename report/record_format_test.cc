// RecordFormat against snprintf: every report format (typed here again, as
// the report tables define them) over many generated argument sets, with
// long fields, tabs, invalid UTF-8, empty texts and extreme numbers.
#include "report/record_format.h"

#include <stdio.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "report/report_formats.h"

namespace {

using bexo_report::FormatArg;
using bexo_report::RecordFormat;

class Generator {
 public:
  explicit Generator(unsigned seed) : rng_(seed) {}

  // Texts of every interesting length: empty, short, just around the
  // precisions, and far beyond them, with tabs and high bytes mixed in.
  std::string Text() {
    static const size_t kLengths[] = {0, 1, 7, 31, 32, 33, 49, 50, 51, 63, 64, 65, 99, 100, 101, 127, 128,
                                      129, 255, 256, 257, 299, 300, 301, 1023, 1024, 1025, 3000, 7000};
    size_t length = kLengths[rng_() % (sizeof kLengths / sizeof kLengths[0])];
    std::string text;
    for (size_t i = 0; i < length; ++i) {
      unsigned r = rng_() % 100;
      if (r < 3) text += '\t';
      else if (r < 6) text += static_cast<char>(0x80 + rng_() % 0x80);
      else if (r < 8) text += '%';
      else text += static_cast<char>('a' + rng_() % 26);
    }
    return text;
  }
  int Int() {
    static const int kEdges[] = {0, 1, -1, 9, 10, INT_MAX, INT_MIN, 123456};
    return rng_() % 3 ? static_cast<int>(rng_()) : kEdges[rng_() % 8];
  }
  unsigned UInt() { return rng_() % 4 ? static_cast<unsigned>(rng_()) : UINT_MAX; }
  long long LongLong() {
    static const long long kEdges[] = {0, -1, LLONG_MAX, LLONG_MIN, 10000000000LL};
    return rng_() % 3 ? static_cast<long long>((static_cast<unsigned long long>(rng_()) << 32) | rng_())
                      : kEdges[rng_() % 5];
  }
  unsigned long long ULongLong() { return rng_() % 3 ? (static_cast<unsigned long long>(rng_()) << 33) : ULLONG_MAX; }

 private:
  std::mt19937 rng_;
};

// The C value and its FormatArg.
struct S {
  std::string value;
  const char* c() const { return value.c_str(); }
};
FormatArg Arg(const S& s) { return FormatArg(std::string_view(s.value)); }
FormatArg Arg(int v) { return FormatArg(v); }
FormatArg Arg(unsigned v) { return FormatArg(v); }
FormatArg Arg(long long v) { return FormatArg(v); }
FormatArg Arg(unsigned long long v) { return FormatArg(v); }
const char* C(const S& s) { return s.c(); }
template <typename T>
T C(T v) {
  return v;
}

template <typename... Args>
void ExpectSameAsSnprintf(const char* literal, bexo_report::FormatSlot slot, size_t capacity,
                          const Args&... args) {
  ASSERT_STREQ(bexo_report::kFormats[slot], literal);
  std::vector<char> expected(capacity + 1);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  int expected_length = snprintf(expected.data(), expected.size(), literal, C(args)...);
#pragma GCC diagnostic pop
  std::vector<char> actual(capacity + 1);
  RecordFormat format(bexo_report::kFormats[slot]);
  long actual_length = bexo_report::FormatLine(actual.data(), actual.size(), format, Arg(args)...);
  ASSERT_EQ(actual_length, expected_length);
  size_t shown = std::min(static_cast<size_t>(expected_length), capacity);
  ASSERT_EQ(std::string(actual.data(), shown), std::string(expected.data(), shown));
}

constexpr int kRounds = 300;

TEST(RecordFormatTest, AccessFormatMatchesSnprintf) {
  Generator g(1);
  for (int i = 0; i < kRounds; ++i) {
    ExpectSameAsSnprintf(
        "%.256s\t%.1024s\t%lld\t%s\t%.50s\t%.50s\t%.64s\t%.50s\t%.50s\t%.300s\t%.1024s\t%.1024s\t%.50s\t%.32s\t%d\t%d\t%d\t%d\t%.1024s\t%.1024s\n",
        bexo_report::kAccess, 6144, S{g.Text()}, S{g.Text()}, g.LongLong(), S{g.Text()}, S{g.Text()},
        S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()},
        S{g.Text()}, S{g.Text()}, g.Int(), g.Int(), g.Int(), g.Int(), S{g.Text()}, S{g.Text()});
  }
}

template <typename... Tail>
void ViolationRound(Generator& g, const char* literal, bexo_report::FormatSlot slot, size_t capacity,
                    const Tail&... tail) {
  ExpectSameAsSnprintf(literal, slot, capacity, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()},
                       S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, g.Int(),
                       S{g.Text()}, S{g.Text()}, S{g.Text()}, tail...);
}

struct ViolationCase {
  const char* name;
  const char* literal;
  bexo_report::FormatSlot slot;
  size_t capacity;
  bool with_info;
};

class ViolationFormatTest : public ::testing::TestWithParam<ViolationCase> {};

TEST_P(ViolationFormatTest, MatchesSnprintf) {
  const ViolationCase& c = GetParam();
  Generator g(static_cast<unsigned>(c.slot) * 7 + 3);
  for (int i = 0; i < kRounds; ++i) {
    if (c.with_info) {
      ViolationRound(g, c.literal, c.slot, c.capacity, g.LongLong(), S{g.Text()}, S{g.Text()}, S{g.Text()},
                     S{g.Text()}, S{g.Text()}, g.Int(), g.Int(), g.Int());
    } else {
      ViolationRound(g, c.literal, c.slot, c.capacity, g.Int());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllViolationLayouts, ViolationFormatTest,
    ::testing::Values(
        ViolationCase{"Violation", "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.1024s\t%.300s\t%.300s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%d\n",
                      bexo_report::kViolation, 5000, false},
        ViolationCase{"ViolationWithInfo", "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.1024s\t%.300s\t%.300s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
                      bexo_report::kViolationWithInfo, 5000, true},
        ViolationCase{"Bot", "%.256s\t%s\t%.50s\t%.1024s\t%.32s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%d\n",
                      bexo_report::kBot, 4096, false},
        ViolationCase{"BotWithInfo", "%.256s\t%s\t%.50s\t%.1024s\t%.32s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
                      bexo_report::kBotWithInfo, 4096, true},
        ViolationCase{"Dlp", "%.256s\t%s\t%.50s\t%.1024s\t%.100s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%d\n",
                      bexo_report::kDlp, 4096, false},
        ViolationCase{"DlpWithInfo", "%.256s\t%s\t%.50s\t%.1024s\t%.100s\t%.32s\t%.300s\t%.64s\t%.300s\t%.300s\t%.1024s\t%d\t%.64s\t%.128s\t%.32s\t%lld\t%.50s\t%.50s\t%.50s\t%.300s\t%.50s\t%d\t%d\t%d\n",
                      bexo_report::kDlpWithInfo, 4096, true}),
    [](const ::testing::TestParamInfo<ViolationCase>& param) { return std::string(param.param.name); });

TEST(RecordFormatTest, SmallFormatsMatchSnprintf) {
  Generator g(11);
  for (int i = 0; i < kRounds; ++i) {
    ExpectSameAsSnprintf(
        "%.256s\t%s\t%.50s\t%.1024s\t%.300s\t%.300s\t%.1024s\t%.64s\t%.50s\t%.50s\t%d\t%d\t%d\t%.32s\t%d\n",
        bexo_report::kRkdx, 5000, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()},
        S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, g.Int(), g.Int(), g.Int(), S{g.Text()}, g.Int());
    ExpectSameAsSnprintf("%.300s\t%.64s\t%s\t%.300s\t%.300s\t%.300s\t%s\n", bexo_report::kCleanup, 2048,
                         S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()},
                         S{g.Text()});
    ExpectSameAsSnprintf("%.64s\t%s\t%.300s\t%.50s\n", bexo_report::kPerformance, 512, S{g.Text()},
                         S{g.Text()}, S{g.Text()}, S{g.Text()});
    ExpectSameAsSnprintf("%.64s\t%s\t%d\t%.64s\t%.1024s\n", bexo_report::kSystemEvent, 4096, S{g.Text()},
                         S{g.Text()}, g.Int(), S{g.Text()}, S{g.Text()});
    ExpectSameAsSnprintf("%.256s\t%s\t%.64s\t%.128s\t%d\t%d\t%u\t%u\t%lld\t%lld\t%s\t%s\n", bexo_report::kApp,
                         2048, S{g.Text()}, S{g.Text()}, S{g.Text()}, S{g.Text()}, g.Int(), g.Int(), g.UInt(),
                         g.UInt(), g.LongLong(), g.LongLong(), S{g.Text()}, S{g.Text()});
    ExpectSameAsSnprintf("%s\t%d\t%lld\t%llu\n", bexo_report::kDashboard, 2048, S{g.Text()}, g.Int(),
                         g.LongLong(), g.ULongLong());
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
