// bexo ini: outputs and exit codes as a script sees them.
#include <string>

#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::WriteFile;

class IniCliTest : public bexo_test::TempRootTest {
 protected:
  static int Bexo(const std::string& args, std::string* out) {
    return bexo_test::RunBexo(args + " 2>/dev/null", out);
  }
};

TEST_F(IniCliTest, GetSetSectionsAndErrors) {
  std::string ini = Path("/etc/kvelo/morvane.ini");
  WriteFile(ini, "[Main]\nPort = 8080\nHost=gw\n[Other]\nx=1\n");
  std::string out;
  const struct {
    std::string args;
    int code;
    std::string output;
  } kCases[] = {
      {"ini get " + ini + " main port", 0, "8080\n"},
      {"ini get " + ini + " Main", 0, "Host=gw\nPort=8080\n"},
      {"ini sections " + ini, 0, "Main\nOther\n"},
      {"ini get " + ini + " Main missing", 1, ""},
      {"ini get " + ini + " Nowhere", 1, ""},
      {"ini get " + Path("/etc/kvelo/none.ini") + " Main port", 1, ""},
      {"ini set " + Path("/etc/kvelo/none.ini") + " Main port 1", 1, ""},
      {"ini frobnicate", 2, ""},
      {"ini get " + ini, 2, ""},
      {"nonsense", 2, ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(Bexo(c.args, &out), c.code) << c.args;
    EXPECT_EQ(out, c.output) << c.args;
  }
  EXPECT_FALSE(bexo_test::FileExists(Path("/etc/kvelo/none.ini")));
}

TEST_F(IniCliTest, SetAndDeleteRewriteTheFile) {
  std::string ini = Path("/etc/kvelo/morvane.ini");
  WriteFile(ini, "[Main]\nPort=8080\n[Other]\nx=1\n");
  std::string out;
  EXPECT_EQ(Bexo("ini set " + ini + " Main Port 9090", &out), 0);
  EXPECT_EQ(Bexo("ini set " + ini + " New key 'two words'", &out), 0);
  EXPECT_EQ(Bexo("ini set " + ini + " Other x", &out), 0);
  EXPECT_EQ(ReadFile(ini), "[Main]\nPort=9090\n[Other]\n[New]\nkey=two words\n");
  EXPECT_EQ(Bexo("ini remove-section " + ini + " other", &out), 0);
  EXPECT_EQ(ReadFile(ini), "[Main]\nPort=9090\n[New]\nkey=two words\n");
}

}  // namespace
