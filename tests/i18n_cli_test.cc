// bexo i18n and bexo appc: outputs and exit codes as a script sees them.
#include <string>

#include "resource_bundles.h"
#include "temp_root.h"

namespace {

class I18nCliTest : public bexo_test::TempRootTest {};

TEST_F(I18nCliTest, TextsListsAndProtocols) {
  bexo_test::InstallResourceBundles(root());
  bexo_test::WriteFile(Path("/etc/kvelo/appcMapping.ini"),
                       bexo_test::ReadFile(std::string(BEXO_SOURCE_DIR) + "/examples/appcMapping.ini"));
  const std::string home = root() + "/home";
  bexo_test::WriteFile(home + "/appcMapping.ini", "[Mail]\n25=SMTP\n");
  const struct {
    std::string env;
    std::string args;
    int code;
    std::string output;
  } kCases[] = {
      {"", "i18n get --locale ja_JP daemon nod_CoreDumpPackageMail tok_subject", 0,
       "コアダンプパッケージが生成されました\n"},
      {"", "i18n get --locale ja events tbl_Service tok_Stopped proxy 137", 0,
       "サービス proxy が停止しました (終了コード 137)\n"},
      {"", "i18n get events tbl_Service tok_Started", 0, "Service {0} started\n"},
      {"", "i18n get " + root() + "/etc/kvelo/resource/events tbl_General tok_Unknown", 0, "Unknown event {0}\n"},
      {"", "i18n get daemon nod_CoreDumpPackageMail tok_none", 1, ""},
      {"", "i18n get nowhere nod_CoreDumpPackageMail tok_subject", 1, ""},
      {"", "i18n list --locale en events", 0,
       "events/tbl_Service/tok_Restarted\tService {0} restarted after {1} failures\n"
       "events/tbl_Service/tok_Started\tService {0} started\n"
       "events/tbl_Service/tok_Stopped\tService {0} stopped (exit code {1})\n"
       "events/tbl_Storage/tok_DiskUsage\tDisk usage of {0} is {1}%\n"
       "events/tbl_Storage/tok_LogRolled\tLog file {0} rolled over at {1} bytes\n"},
      {"", "i18n list nowhere", 1, ""},
      {"", "i18n format 'Hello {0}, you have {1} items' Ann 3", 0, "Hello Ann, you have 3 items\n"},
      {"", "i18n get daemon nod_CoreDumpPackageMail", 2, ""},
      {"", "appc show 42 101", 0, "42\tLegacy Tunnel\tUnclassified\t4\n101\tChat Messenger\tInstant Messaging\t101\n"},
      {"", "appc show 7", 1, "7\t\t\t7\n"},
      {"", "appc show 7x", 2, ""},
      {"BEXO_HOME=" + home, "appc list", 0, "25\tSMTP\tMail\t25\n"},
      {"BEXO_HOME=" + root(), "appc list", 1, ""},
  };
  for (const auto& c : kCases) {
    std::string out;
    EXPECT_EQ(bexo_test::RunBexo(c.args + " 2>/dev/null", &out, c.env + " LC_ALL=C.UTF-8"), c.code) << c.args;
    EXPECT_EQ(out, c.output) << c.args;
  }
}

}  // namespace
