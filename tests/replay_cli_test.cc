// bexo replay: requests matched and recorded, one record each, nothing lost.
#include <string>

#include "temp_root.h"

namespace {

using bexo_test::RunCommand;
using bexo_test::WriteFile;

class ReplayCliTest : public bexo_test::TempRootTest {};

int CountLines(const std::string& text, const std::string& needle) {
  int count = 0;
  for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++count;
  return count;
}

TEST_F(ReplayCliTest, RecordsEveryRequestAsAccessOrBlocking) {
  const std::string examples = std::string(BEXO_SOURCE_DIR) + "/examples/";
  WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nreport_logdir = /var/bexo/report\n");
  WriteFile(root() + "/requests",
            "# comment\n"
            "u1 10.1.1.1 ads.doubleclick-ads.net/pagead/ad.js\n"
            "u2 10.1.1.2 https://en.wikipedia.org/wiki/Trie\n"
            "u3 10.1.1.3 news.example.com/weather\n"
            "incomplete line\n");
  std::string out;
  int code = RunCommand(std::string(BEXO_CLI_PATH) + " replay --opp " + examples + "opp.list --user " +
                            examples + "user.list " + root() + "/requests",
                        &out);
  ASSERT_EQ(code, 0) << out;
  EXPECT_NE(out.find("requests: 3, blocked: 1, records written: 3"), std::string::npos) << out;

  std::string dir = Path("/var/bexo/report");
  std::string listing;
  RunCommand("cat " + dir + "/*.access.* " + dir + "/*.violation.* " + dir + "/*.systemevent.*", &listing);
  EXPECT_EQ(CountLines(listing, "u2\t"), 1) << listing;
  EXPECT_EQ(CountLines(listing, "u3\t"), 1) << listing;
  EXPECT_EQ(CountLines(listing, "u1\t"), 1) << listing;
  EXPECT_EQ(CountLines(listing, "replayed 3 requests: 1 blocked, 3 records written"), 1) << listing;
  EXPECT_NE(out.find(dir + "/report_log.violation."), std::string::npos) << out;

  EXPECT_EQ(RunCommand(std::string(BEXO_CLI_PATH) + " replay --opp x 2>/dev/null", &out), 2);
}

}  // namespace
