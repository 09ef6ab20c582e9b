// The "bexo url" command run as a real process on real rule files.
#include <string>

#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::RunCommand;
using bexo_test::WriteFile;

class UrlCommandTest : public bexo_test::TempRootTest {
 protected:
  int Bexo(const std::string& args, std::string* out, const std::string& input = "") {
    std::string command = std::string(BEXO_CLI_PATH) + " url " + args + " 2>&1";
    if (!input.empty()) {
      WriteFile(root() + "/stdin", input);
      command += " < " + root() + "/stdin";
    }
    return RunCommand(command, out);
  }
};

TEST_F(UrlCommandTest, NormalizePrintsWhatTheMatcherSees) {
  std::string out;
  EXPECT_EQ(0, Bexo("normalize 'HTTP://Host//a/../b%2A' x%2ay", &out));
  EXPECT_EQ("http:/host/b*\nx*y\n", out);
  EXPECT_EQ(0, Bexo("normalize --rule 'x%2Ay'", &out));
  EXPECT_EQ("x%2ay\n", out);
}

TEST_F(UrlCommandTest, AddDeleteListAndMatchAFile) {
  const std::string file = root() + "/user.list";
  std::string out;
  ASSERT_EQ(0, Bexo("add " + file + " 'Ads.Example/*' block --id T1", &out)) << out;
  ASSERT_EQ(0, Bexo("add " + file + " 'ok.example' allow --expires '2099/01/01 00:00:00'", &out));
  EXPECT_EQ(2, Bexo("add " + file + " x nosuchpolicy", &out));
  const std::string text = ReadFile(file);
  EXPECT_NE(std::string::npos, text.find("[block]\nads.example/*-->T1-->\n")) << text;
  EXPECT_NE(std::string::npos, text.find("[allow]\nok.example-->-->2099/01/01 00:00:00\n"));

  ASSERT_EQ(0, Bexo("match --user " + file + " --tsv - ", &out, "ads.example/x\nnone.example\n"));
  EXPECT_EQ("ads.example/x\tfound\tblock\tads.example/*\tT1\t\nnone.example\tnot found\t\t\t\t\n",
            out);

  ASSERT_EQ(0, Bexo("list " + file, &out));
  EXPECT_NE(std::string::npos, out.find("block   ads.example/*  T1")) << out;

  ASSERT_EQ(0, Bexo("del " + file + " ADS.example/*", &out)) << out;
  EXPECT_EQ(1, Bexo("del " + file + " ads.example/*", &out));
  EXPECT_EQ(1, Bexo("match --user " + file + " ads.example/x", &out));
  EXPECT_NE(std::string::npos, out.find("not found"));
}

TEST_F(UrlCommandTest, CheckReportsInvalidFilesAndLines) {
  const std::string bad = root() + "/bad.list";
  WriteFile(bad, "rule.example\nunterminated");
  std::string out;
  EXPECT_EQ(1, Bexo("check " + bad, &out));
  EXPECT_NE(std::string::npos, out.find(":1: rule before any section")) << out;
  EXPECT_NE(std::string::npos, out.find(":2: unterminated line before any section")) << out;
  EXPECT_NE(std::string::npos, out.find("(invalid file)")) << out;

  WriteFile(bad, "[Block]\n[block]\nA.example-->id-->tomorrow\nb**c\nlast");
  EXPECT_EQ(1, Bexo("check " + bad, &out));
  EXPECT_NE(std::string::npos, out.find(":1: unknown section [Block]")) << out;
  EXPECT_NE(std::string::npos, out.find(":3: unreadable expiry 'tomorrow'")) << out;
  EXPECT_NE(std::string::npos, out.find("normalised: a.example")) << out;
  EXPECT_EQ(std::string::npos, out.find(":4:")) << "stars are no problem: " << out;
  EXPECT_NE(std::string::npos, out.find(":5: last line has no line feed")) << out;

  EXPECT_EQ(0, Bexo("check " + std::string(BEXO_SOURCE_DIR) + "/examples/user.list", &out)) << out;
}

TEST_F(UrlCommandTest, ShippedExamplesMatchAsDocumented) {
  const std::string ex = std::string(BEXO_SOURCE_DIR) + "/examples/";
  std::string out;
  ASSERT_EQ(0, Bexo("match --tsv --opp " + ex + "opp.list --user " + ex + "user.list -", &out,
                    ReadFile(ex + "urls.txt")));
  EXPECT_NE(std::string::npos,
            out.find("old-outbreak.example.org/page\texpired\tweb_server\t")) << out;
  EXPECT_NE(std::string::npos, out.find("shop.example.com/cart12\tnot found")) << out;
}

}  // namespace
