#include "IPCParser.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using Fields = std::map<std::string, std::string>;

struct ParseCase {
  const char* name;
  std::string message;
  bool valid;
  int version;
  std::string type;
  Fields fields;
};

void PrintTo(const ParseCase& c, std::ostream* out) { *out << c.name; }

class IPCParserGrammarTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(IPCParserGrammarTest, ParsesAsTheGrammarSays) {
  const ParseCase& c = GetParam();
  BEXO::IPCParser parser;
  EXPECT_EQ(parser.Parse(c.message), c.valid);
  EXPECT_EQ(parser.valid, c.valid);
  EXPECT_EQ(parser.version, c.version);
  EXPECT_EQ(parser.type, c.type);
  EXPECT_EQ(parser.fields, c.fields);

  BEXO::IPCParser constructed(c.message);
  EXPECT_EQ(constructed.valid, c.valid);
  EXPECT_EQ(constructed.fields, c.fields);
}

using std::string_literals::operator""s;

INSTANTIATE_TEST_SUITE_P(
    Cases, IPCParserGrammarTest,
    ::testing::Values(
        ParseCase{"TypeOnly", "V1\r\nPING\r\n", true, 1, "PING", {}},
        ParseCase{"UnterminatedTailIgnored", "V1\r\nT\r\na:1\r\nb", true, 1, "T", {{"a", "1"}}},
        ParseCase{"EmptyType", "V1\r\n\r\nk:v\r\n", true, 1, "", {{"k", "v"}}},
        ParseCase{"ValueKeepsColons", "V1\r\nT\r\nurl:http://x:8080/a\r\n", true, 1, "T",
                  {{"url", "http://x:8080/a"}}},
        ParseCase{"NothingTrimmed", "V1\r\nT\r\n k : v \r\n", true, 1, "T", {{" k ", " v "}}},
        ParseCase{"EmptyValue", "V1\r\nT\r\nk:\r\n", true, 1, "T", {{"k", ""}}},
        ParseCase{"EmptyName", "V1\r\nT\r\n:v\r\n", true, 1, "T", {{"", "v"}}},
        ParseCase{"LastOccurrenceWins", "V1\r\nT\r\na:1\r\na:2\r\n", true, 1, "T", {{"a", "2"}}},
        ParseCase{"LoneCrAndLfAreData", "V1\r\nT\rX\nY\r\nk:a\rb\nc\r\n", true, 1, "T\rX\nY",
                  {{"k", "a\rb\nc"}}},
        ParseCase{"NulBytesAreData", "V1\r\nT\0U\r\nk:\0\r\n"s, true, 1, "T\0U"s, {{"k", "\0"s}}},
        ParseCase{"FieldsOrderedByBytes", "V1\r\nT\r\nb:2\r\nB:3\r\na:1\r\n\xc3\xa9:4\r\n", true, 1, "T",
                  {{"B", "3"}, {"a", "1"}, {"b", "2"}, {"\xc3\xa9", "4"}}},
        ParseCase{"VersionTwoRejected", "V2\r\nT\r\n", false, 0, "", {}},
        ParseCase{"VersionTenRejected", "V10\r\nT\r\n", false, 0, "", {}},
        ParseCase{"LowerCaseRejected", "v1\r\nT\r\n", false, 0, "", {}},
        ParseCase{"LeadingBlankRejected", " V1\r\nT\r\n", false, 0, "", {}},
        ParseCase{"Empty", "", false, 0, "", {}},
        ParseCase{"NoLineEnd", "V1", false, 0, "", {}},
        ParseCase{"BareLfIsNoLineEnd", "V1\nT\n", false, 0, "", {}},
        ParseCase{"VersionWithoutType", "V1\r\n", false, 1, "", {}},
        ParseCase{"UnterminatedType", "V1\r\nPING", false, 1, "", {}},
        ParseCase{"EmptyLineAmongFields", "V1\r\nT\r\na:1\r\n\r\nb:2\r\n", false, 1, "T", {{"a", "1"}}},
        ParseCase{"FieldWithoutColon", "V1\r\nT\r\na:1\r\nbogus\r\nc:3\r\n", false, 1, "T",
                  {{"a", "1"}}},
        ParseCase{"ColonOnlyOnALaterLine", "V1\r\nT\r\nbogus\r\nc:3\r\n", false, 1, "T", {}}),
    [](const ::testing::TestParamInfo<ParseCase>& param) { return std::string(param.param.name); });

TEST(IPCParserTest, ReparseKeepsEarlierFieldsAndClearsValid) {
  BEXO::IPCParser parser("V1\r\nA\r\nx:1\r\n");
  ASSERT_TRUE(parser.valid);
  EXPECT_FALSE(parser.Parse("V1\r\nB\r\ny:2\r\nbroken\r\n"));
  EXPECT_FALSE(parser.valid);
  EXPECT_EQ(parser.type, "B");
  EXPECT_EQ(parser.fields, (Fields{{"x", "1"}, {"y", "2"}}));
}

}  // namespace
