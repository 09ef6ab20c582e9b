// The bexo report and bexo syslog commands, run as a script would.
#include <regex>
#include <string>

#include "report_files.h"
#include "syslog_sink.h"
#include "temp_root.h"

namespace {

class ReportCliTest : public bexo_test::TempRootTest {};

// The rows run in order against one root; `out` is a pattern.
TEST_F(ReportCliTest, CommandsInOrder) {
  bexo_test::SyslogSink sink(Path("/var/bexo/log.sock"));
  ASSERT_TRUE(sink.ok());
  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                       "[System-Event]\nsyslog_socket = " + Path("/var/bexo/log.sock") + "\n");
  const std::string bexo = BEXO_CLI_PATH;
  const struct {
    std::string command;
    int code;
    const char* out;
  } cases[] = {
      {bexo + " report write performance gw cpu 42", 0, ""},
      {"printf 'a\\tm1\\t1\\nb\\tm2\\t2\\n' | " + bexo + " report write performance -", 0, ""},
      {bexo + " report write systemevent 18 gw proxy 'disk full'", 0, ""},
      // level 18 is written as 2
      {bexo + " report tail systemevent", 0, "server[^\n]*\n[^\n]*2  [^\n]*disk full[^\n]*\n"},
      {bexo + " syslog test 777 hello", 0, "sent event 777\n"},
      {bexo + " report write performance only-one", 2, ""},
      {bexo + " report write nosuchkind a", 2, ""},
      {bexo + " report tail nosuchfamily", 2, ""},
      {bexo + " report", 2, ""},
      {bexo + " report tail app", 1, "user  date .*\n"},  // no records yet: the header only
  };
  for (const auto& c : cases) {
    std::string out;
    EXPECT_EQ(bexo_test::RunCommand(c.command + " 2>/dev/null", &out), c.code) << c.command;
    EXPECT_TRUE(std::regex_match(out, std::regex(c.out))) << c.command << ": " << out;
  }
  std::string records = bexo_test::ReadFamily(Path("/etc/kvelo/log"), "report_log.performance.");
  EXPECT_TRUE(std::regex_match(records, std::regex("gw\t[^\t]+\tcpu\t42\nb\t[^\t]+\tm2\t2\na\t[^\t]+\tm1\t1\n")))
      << records;
  bexo_test::SyslogMessage message = bexo_test::ParseRfc5424(sink.Receive());
  EXPECT_EQ(message.msgid + "|" + message.text + "|" + message.app, "777|hello|bexo");
}

}  // namespace
