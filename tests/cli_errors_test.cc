// Bad input to the bexo CLI: each gets a clear message and its exit code
// (2 bad command line, 1 cannot read), never a misleading answer.
#include <sys/resource.h>

#include <regex>
#include <string>

#include "temp_root.h"

namespace {

class CliErrorsTest : public bexo_test::TempRootTest {
 protected:
  // Runs bexo with `args` (and stdin from `input` when given), stderr
  // included in `*out`.
  int Bexo(const std::string& args, std::string* out, const std::string& input = "") {
    std::string command = std::string(BEXO_CLI_PATH) + " " + args + " 2>&1";
    if (!input.empty()) command = input + " | " + command;
    return bexo_test::RunCommand(command, out);
  }
};

TEST_F(CliErrorsTest, ClearErrorsWithTheirExitCodes) {
  const std::string dir = root();
  const struct {
    std::string args;
    int code;
    const char* message;  // a pattern
  } cases[] = {
      {"url check " + dir, 1, "bexo: cannot read .*: Is a directory\n"},
      {"url match --opp " + dir + " a.example", 1, "bexo: cannot read .*: Is a directory\n"},
      {"url match --user " + dir + " a.example", 1, "bexo: cannot read .*: Is a directory\n"},
      {"ini get " + dir + " A k", 1, "bexo: cannot read .*: Is a directory\n"},
      {"ini sections " + dir, 1, "bexo: cannot read .*: Is a directory\n"},
      {"ini set " + dir + " A k v", 1, "bexo: cannot read .*: Is a directory\n"},
      {"report tail access -n abc", 2, "bexo: N must be a number .*'abc'\n"},
      {"report tail access -n 99999999999999999999", 2, "bexo: N must be a number .*\n"},
      {"report tail access -n -1", 2, "bexo: N must be a number .*\n"},
      {"syslog test abc", 2, "bexo: EVENT_ID must be a number .*'abc'\n"},
      {"syslog test 12x hello", 2, "bexo: EVENT_ID must be a number .*\n"},
  };
  for (const auto& c : cases) {
    std::string out;
    EXPECT_EQ(Bexo(c.args, &out), c.code) << c.args << "\n" << out;
    EXPECT_TRUE(std::regex_match(out, std::regex(c.message))) << c.args << "\n" << out;
  }
}

// Standard input is read a line at a time: records are written as they come,
// and a line too long for any record is refused without reading the rest.
TEST_F(CliErrorsTest, ReportWriteReadsStandardInputLineByLine) {
  std::string out;
  EXPECT_EQ(Bexo("report write performance -", &out,
                 "{ printf 'gw\\tcpu\\t1\\n\\nfew fields\\n'; head -c 200000000 /dev/zero; }"),
            2);
  EXPECT_EQ(out, "bexo: line 3: performance takes 3 fields: server metric_id metric_value\n");
  EXPECT_EQ(Bexo("report write performance -", &out, "head -c 200000000 /dev/zero | tr '\\0' a"), 2);
  EXPECT_EQ(out, "bexo: line 1: longer than 65536 bytes\n");
  rusage children;
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &children), 0);
  EXPECT_LT(children.ru_maxrss, 100 * 1024) << "KiB: standard input was read whole";
}

}  // namespace
