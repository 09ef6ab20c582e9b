// bexo slog: what a script sees from write, cat and read, run in order
// against one root.
#include <regex>
#include <string>

#include "temp_root.h"

namespace {

class SlogCliTest : public bexo_test::TempRootTest {};

TEST_F(SlogCliTest, CommandsInOrder) {
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nlang=en\n");
  const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)";
  const std::string entry = time + " kind=67108864 id=67108864 level=5 description=";
  const struct {
    std::string args;
    int code;
    std::string out;  // a pattern
  } cases[] = {
      {"write /var/bexo/slog d one 'two words'", 0, ""},
      {"cat /var/bexo/slog d", 0, entry + "one\n" + entry + "\"two words\"\n"},
      {"cat --json /var/bexo/slog d | jq -c '.attrs[0].value'", 0, "\"one\"\n\"two words\"\n"},
      {"read /var/bexo/slog d --bookmark", 0,
       "bookmark .*/var/bexo/slog/d.bmk: 0\nresumes at entry 1 of 2: " + entry + "one\n"},
      {"read /var/bexo/slog d --step 1", 0, entry + "one\n" + entry + "\"two words\"\n"},
      {"read /var/bexo/slog d --bookmark", 0,
       "bookmark .*/var/bexo/slog/d.bmk: 2\nresumes after the last of 2 entries\n"},
      {"cat /var/bexo/none d", 1, ""},
      {"cat /var/bexo/slog", 2, ""},
      {"read /var/bexo/slog d --step 0", 2, ""},
      {"frobnicate", 2, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    std::string out;
    int code = bexo_test::RunCommand(std::string(BEXO_CLI_PATH) + " slog " + c.args + " 2>/dev/null",
                                     &out);
    EXPECT_EQ(code, c.code);
    EXPECT_TRUE(std::regex_match(out, std::regex(c.out))) << out;
  }
}

}  // namespace
