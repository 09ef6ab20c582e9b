// bexo eventlog: outputs, files and exit codes as a script sees them.
#include <sys/stat.h>

#include <regex>
#include <string>

#include "report_files.h"
#include "temp_root.h"

namespace {

class EventLogCliTest : public bexo_test::TempRootTest {};

// The rows run in order against one root. In `out`, "@N" stands for today's
// file N of /var/bexo/log/ev; `out` is a pattern (nullptr: not checked).
TEST_F(EventLogCliTest, CommandsInOrder) {
  mkdir(Path("/var/bexo/log").c_str(), 0755);
  bexo_test::WriteFile(Path("/var/bexo/in.txt"), "from\nstdin");
  const struct {
    std::string args;
    int code;
    const char* out;
    const char* file1;  // expected content of @1 afterwards, or nullptr
  } cases[] = {
      {"write /var/bexo/log/ev one 'two words' 'three\n'", 0, "@1\n", "one\ntwo words\nthree\n"},
      {"write /var/bexo/log/ev < /dev/null", 0, nullptr, "one\ntwo words\nthree\n"},
      {"write /var/bexo/log/ev < " + Path("/var/bexo/in.txt"), 0, nullptr, "one\ntwo words\nthree\nfrom\nstdin\n"},
      {"write --max-size 30 /var/bexo/log/ev x", 0, "@2\n", nullptr},
      {"files --max-size 30 /var/bexo/log/ev", 0, " {12}31  @1\n\\* {12}2  @2\n", nullptr},
      {"files /var/bexo/log/ev", 0, "\\* {11}31  @1\n {13}2  @2\n", nullptr},
      {"files --max-size 2 /var/bexo/log/ev", 0, " {12}31  @1\n {13}2  @2\n\\* {8}\\(new\\)  @3\n", nullptr},
      {"timestamp ja", 0, "\\d{4}/\\d\\d/\\d\\d \\d{1,2}:\\d\\d:\\d\\d\n", nullptr},
      {"", 2, "", nullptr},
      {"write", 2, "", nullptr},
      {"frobnicate x", 2, "", nullptr},
      {"files", 2, "", nullptr},
      {"files --max-size 0 /var/bexo/log/ev", 2, "", nullptr},
      {"files --max-size 12k /var/bexo/log/ev", 2, "", nullptr},
      {"write --bogus /var/bexo/log/ev x", 2, "", nullptr},
      {"timestamp en de", 2, "", nullptr},
      {"write /var/bexo/missing/ev x", 1, "", nullptr},
  };
  const std::string file1 = bexo_test::DatedFile(Path("/var/bexo/log/ev"), 1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    std::string out;
    EXPECT_EQ(bexo_test::RunCommand(std::string(BEXO_CLI_PATH) + " eventlog " + c.args + " 2>/dev/null", &out), c.code);
    if (c.out) {
      std::string pattern = c.out;
      for (size_t at; (at = pattern.find('@')) != std::string::npos;) {
        pattern.replace(at, 2, bexo_test::DatedFile(Path("/var/bexo/log/ev"), pattern[at + 1] - '0'));
      }
      EXPECT_TRUE(std::regex_match(out, std::regex(pattern))) << out;
    }
    if (c.file1) {
      EXPECT_EQ(bexo_test::ReadFile(file1), c.file1);
    }
  }
}

}  // namespace
