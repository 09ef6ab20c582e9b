// bexo eventlog: outputs, files and exit codes as a script sees them.
#include <sys/stat.h>
#include <time.h>

#include <string>

#include "eventlog/eventlog_test_support.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::RunCommand;
using bexo_test::WriteFile;

class EventLogCliTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    mkdir(Path("/var/bexo/log").c_str(), 0755);
  }

  int Bexo(const std::string& args, std::string* out) {
    return RunCommand(std::string(BEXO_CLI_PATH) + " " + args + " 2>/dev/null", out);
  }

  // The real path of today's file `counter` of the product path `prefix`.
  std::string Dated(const std::string& prefix, int counter) const {
    return bexo_eventlog_test::DatedFile(Path(prefix), counter);
  }

  // One line of "bexo eventlog files": marker, size right-aligned, path.
  static std::string Row(char marker, const std::string& size, const std::string& path) {
    return std::string(1, marker) + " " + std::string(12 - size.size(), ' ') + size + "  " + path + "\n";
  }
};

TEST_F(EventLogCliTest, WriteAppendsLinesAndPrintsTheFile) {
  std::string out;
  EXPECT_EQ(Bexo("eventlog write /var/bexo/log/ev one 'two words' 'three\n'", &out), 0);
  EXPECT_EQ(out, Dated("/var/bexo/log/ev", 1) + "\n");
  EXPECT_EQ(ReadFile(Dated("/var/bexo/log/ev", 1)), "one\ntwo words\nthree\n");
  EXPECT_EQ(Bexo("eventlog write /var/bexo/log/ev < /dev/null", &out), 0);
  WriteFile(Path("/var/bexo/in.txt"), "from\nstdin");
  EXPECT_EQ(Bexo("eventlog write /var/bexo/log/ev < " + Path("/var/bexo/in.txt"), &out), 0);
  EXPECT_EQ(ReadFile(Dated("/var/bexo/log/ev", 1)), "one\ntwo words\nthree\nfrom\nstdin\n");
}

TEST_F(EventLogCliTest, FilesMarksTheFileWrittenNext) {
  std::string out;
  ASSERT_EQ(Bexo("eventlog write --max-size 10 /var/bexo/log/ev 0123456789", &out), 0);
  EXPECT_EQ(Bexo("eventlog files --max-size 10 /var/bexo/log/ev", &out), 0);
  EXPECT_EQ(out, Row(' ', "11", Dated("/var/bexo/log/ev", 1)) +
                     Row('*', "(new)", Dated("/var/bexo/log/ev", 2)));
  ASSERT_EQ(Bexo("eventlog write --max-size 10 /var/bexo/log/ev x", &out), 0);
  EXPECT_EQ(out, Dated("/var/bexo/log/ev", 2) + "\n");
  EXPECT_EQ(Bexo("eventlog files /var/bexo/log/ev", &out), 0);
  EXPECT_EQ(out, Row('*', "11", Dated("/var/bexo/log/ev", 1)) +
                     Row(' ', "2", Dated("/var/bexo/log/ev", 2)));
}

TEST_F(EventLogCliTest, TimestampUsesTheLanguage) {
  std::string out;
  ASSERT_EQ(Bexo("eventlog timestamp ja", &out), 0);
  int year = 0, month = 0, day = 0;
  EXPECT_EQ(sscanf(out.c_str(), "%d/%d/%d ", &year, &month, &day), 3) << out;  // "2024/03/05 21:07:02"
  EXPECT_GE(year, 2024);
}

TEST_F(EventLogCliTest, UsageAndFailureExitCodes) {
  const struct {
    std::string args;
    int code;
  } kCases[] = {
      {"eventlog", 2},
      {"eventlog write", 2},
      {"eventlog frobnicate x", 2},
      {"eventlog files", 2},
      {"eventlog files --max-size 0 /var/bexo/log/ev", 2},
      {"eventlog files --max-size 12k /var/bexo/log/ev", 2},
      {"eventlog write --bogus /var/bexo/log/ev x", 2},
      {"eventlog timestamp en de", 2},
      {"eventlog write /var/bexo/missing/ev x", 1},
  };
  std::string out;
  for (const auto& c : kCases) {
    EXPECT_EQ(Bexo(c.args, &out), c.code) << c.args;
    EXPECT_EQ(out, "") << c.args;
  }
}

}  // namespace
