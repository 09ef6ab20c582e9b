// Commands run without a shell: the deliberate word splitting, the exit
// status, and what the child inherits (descriptors, signal handlers).
#include "process_spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "UxLog.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;

std::vector<std::string> Split(const std::string& line) {
  std::vector<char> copy(line.begin(), line.end());
  copy.push_back('\0');
  char* words[bexo::kMaxCommandWords] = {};
  const int n = bexo::SplitCommandWords(copy.data(), words, bexo::kMaxCommandWords);
  return std::vector<std::string>(words, words + n);
}

TEST(SplitCommandWords, Table) {
  std::string many;
  for (int i = 1; i <= 25; ++i) many += std::to_string(i) + " ";
  std::vector<std::string> first19;
  for (int i = 1; i <= 19; ++i) first19.push_back(std::to_string(i));
  const struct {
    std::string line;
    std::vector<std::string> words;
  } cases[] = {
      {"  a b\tc  ", {"a", "b", "c"}},
      {"psql -c \"\\copy t from f\"", {"psql", "-c", "\\copy t from f"}},
      {"x 'a \"b' \"c 'd\"", {"x", "a \"b", "c 'd"}},
      {"x \"\" y", {"x", "", "y"}},
      {"x \"unterminated y", {"x"}},
      {"a\\ b", {"a\\", "b"}},  // no escapes
      {"", {}},
      {many, first19},
  };
  for (const auto& c : cases) EXPECT_EQ(c.words, Split(c.line)) << c.line;
}

class ExecuteTest : public bexo_test::TempRootTest {
 protected:
  int Run(const std::string& line) { return bexo::ExecuteCommand(line.c_str(), bexo::SpawnOptions()); }
};

TEST_F(ExecuteTest, ExitStatusSignalAndMissingProgram) {
  std::string log;
  UxLog::setSink([&](const UxLogRecord& r) { log += r.text + "\n"; });
  EXPECT_EQ(0, Run("true"));
  EXPECT_EQ(7, Run("sh -c 'exit 7'"));
  EXPECT_EQ(-1, Run("sh -c 'kill -9 $$'"));
  EXPECT_EQ(255, Run("/no/such/program arg"));
  EXPECT_NE(std::string::npos, log.find("Error executing command: /no/such/program arg")) << log;
  UxLog::setSink(nullptr);
}

TEST_F(ExecuteTest, ChildSeesOnlyStandardDescriptorsAndDefaultSignals) {
  const int low = open("/dev/null", O_RDONLY);  // no O_CLOEXEC: the child must close it
  const int high = fcntl(low, F_DUPFD, 300);
  ASSERT_GE(high, 300);
  signal(SIGTERM, SIG_IGN);  // an ignored signal stays ignored across exec unless reset
  const std::string out = root() + "/fds";
  // The glob is expanded before the redirection opens anything.
  EXPECT_EQ(0, Run("sh -c 'cd /proc/$$/fd && echo * > " + out + "'"));
  EXPECT_EQ(-1, Run("sh -c 'kill -TERM $$; exit 0'"));
  signal(SIGTERM, SIG_DFL);
  close(low);
  close(high);
  // The standard three and the one sh reads the directory through.
  EXPECT_EQ("0 1 2 3\n", ReadFile(out));
}

TEST_F(ExecuteTest, MoreThanNineteenWordsAreCut) {
  const std::string out = root() + "/count";
  std::string line = "sh -c 'echo $0 $# > " + out + "'";
  for (int i = 1; i <= 30; ++i) line += " w" + std::to_string(i);
  EXPECT_EQ(0, Run(line));
  // sh, -c and the script, then 16 words: $0 and 15 positional parameters.
  EXPECT_EQ("w1 15\n", ReadFile(out));
}

TEST_F(ExecuteTest, FeederWritesTheChildsInputAndAFailingFeederKillsIt) {
  const std::string out = root() + "/input";
  bexo::SpawnOptions options;
  const std::string data(1 << 20, 'x');  // more than a socket buffer
  EXPECT_EQ(0, bexo::ExecuteCommand(("sh -c 'cat > " + out + "'").c_str(), options, [&](int fd) {
              return bexo::WriteAllToChild(fd, data.data(), data.size());
            }));
  EXPECT_EQ(data, ReadFile(out));
  EXPECT_EQ(-1, bexo::ExecuteCommand(("sh -c 'cat > " + out + "; exit 0'").c_str(), options, [&](int fd) {
              bexo::WriteAllToChild(fd, "partial", 7);
              return false;
            }));
}

}  // namespace
