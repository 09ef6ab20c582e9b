// Normalisation of URLs and rule texts, and the parent-folder roll-back.
#include <string.h>

#include <string>

#include "temp_root.h"
#include "url_matching_module.h"

namespace {

struct NormalizeCase {
  const char* input;
  bool decode_wildcards;
  const char* expected;
};

void PrintTo(const NormalizeCase& c, std::ostream* os) { *os << "'" << c.input << "'"; }

class NormalizeTest : public bexo_test::TempRootTest,
                      public ::testing::WithParamInterface<NormalizeCase> {};

TEST_P(NormalizeTest, GivesExpectedText) {
  const NormalizeCase& c = GetParam();
  char result[1024];
  ASSERT_TRUE(_to_lower_and_url_decode(c.input, result, sizeof result, c.decode_wildcards));
  EXPECT_STREQ(c.expected, result) << "input '" << c.input << "'";
}

INSTANTIATE_TEST_SUITE_P(
    Traps, NormalizeTest,
    ::testing::Values(
        // a double slash after the scheme collapses like any other
        NormalizeCase{"Ab://Host.Sub.TLD//a/./b/../c", true, "ab:/host.sub.tld/a/c"},
        NormalizeCase{"http://www.Example.com/", true, "http:/www.example.com/"},
        NormalizeCase{"\\\\host\\dir\\", true, "host/dir/"},
        NormalizeCase{"///a", true, "a"},
        // "../" right after the first element removes nothing; a final ".." stays
        NormalizeCase{"a/../..", true, "a/.."},
        NormalizeCase{"a/b/../../../c", true, "a/c"},
        NormalizeCase{"a/b//../c", true, "a/c"},
        NormalizeCase{"a/./b", true, "a/b"},
        NormalizeCase{"./a", true, "./a"},
        NormalizeCase{"a/.b/..c", true, "a/.b/..c"},
        // %25 chains collapse to one character
        NormalizeCase{"%41%2541%zz%4", true, "aa%zz%4"},
        NormalizeCase{"%252541", true, "a"},
        NormalizeCase{"x%25", true, "x%"},
        NormalizeCase{"x%2525", true, "x%"},
        NormalizeCase{"%25zz", true, "%zz"},
        NormalizeCase{"%25%41", true, "%a"},
        NormalizeCase{"%", true, "%"},
        NormalizeCase{"a%2", true, "a%2"},
        NormalizeCase{"%2F%5c", true, "/\\"},
        // escaped wildcards
        NormalizeCase{"x%2ay", true, "x*y"},
        NormalizeCase{"x%2ay", false, "x%2ay"},
        NormalizeCase{"x%2Ay", false, "x%2ay"},
        NormalizeCase{"x%3F", false, "x%3f"},
        NormalizeCase{"x%3F", true, "x?"},
        NormalizeCase{"x%252a", false, "x%2a"},
        NormalizeCase{"A*B?C", false, "a*b?c"},
        NormalizeCase{"a+b", true, "a+b"},
        NormalizeCase{"", true, ""}));

TEST(NormalizeLength, RefusesWhenResultCannotHoldInput) {
  char result[8];
  memset(result, 'Z', sizeof result);
  EXPECT_FALSE(_to_lower_and_url_decode("abcdefgh", result, 8, true));
  EXPECT_EQ('Z', result[0]) << "nothing may be written on refusal";
  EXPECT_TRUE(_to_lower_and_url_decode("abcdefg", result, 8, true));
  EXPECT_STREQ("abcdefg", result);
}

TEST(NormalizeDeath, NullBuffersStopTheProcess) {
  char result[8];
  EXPECT_DEATH(_to_lower_and_url_decode(nullptr, result, 8, true), "input_buffer");
  EXPECT_DEATH(_to_lower_and_url_decode("a", nullptr, 8, true), "result_buffer");
}

struct RollBackCase {
  const char* buffer;
  int expected_length;
};

void PrintTo(const RollBackCase& c, std::ostream* os) { *os << "'" << c.buffer << "'"; }

class RollBackTest : public ::testing::TestWithParam<RollBackCase> {};

TEST_P(RollBackTest, CutsLastElement) {
  int length = static_cast<int>(strlen(GetParam().buffer));
  _roll_back_to_parent_folder(GetParam().buffer, length);
  EXPECT_EQ(GetParam().expected_length, length) << GetParam().buffer;
}

INSTANTIATE_TEST_SUITE_P(Table, RollBackTest,
                         ::testing::Values(RollBackCase{"host/a/b/", 7},  // "host/a/"
                                           RollBackCase{"host/a/", 5},    // "host/"
                                           RollBackCase{"host/", 5},      // host stays
                                           RollBackCase{"a//", 2},
                                           RollBackCase{"/", 1},
                                           RollBackCase{"host/a", 6}));

}  // namespace
