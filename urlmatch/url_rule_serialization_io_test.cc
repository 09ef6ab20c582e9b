// Rule list files: exact bytes written, the reader's rules for headers,
// sections, unterminated lines and expiry fields, and translation of block
// rules to addresses.
#include "src/API_legacy/include/url_rule_serialization_io"

#include <string>
#include <vector>

#include "UxLog.h"
#include "double_linked_graph.h"
#include "temp_root.h"
#include "url_rule_serialization_device.h"

namespace {

const std::string kHeader =
    "# user should not modify this file by hand,\n"
    "# please use GUI instead; otherwise it may tamper\n"
    "# the structure of this file!\n";

// Every section a written file has, in value order, with its rule lines.
std::string Sections(const std::vector<std::pair<std::string, std::string>>& filled) {
  static const char* const kNames[] = {
      "[error_type]", "[filename]", "[web_mail_site]", "[web_server]", "[url_pattern]",
      "[java_vb_script]", "[allow]", "[block]", "[BEXO_block]", "[pattern]", "[PH]", "[SP]",
      "[VI]", "[FS]", "[DV]", "[AP]", "[javascan]", "[mmc]"};
  std::string text;
  for (const char* name : kNames) {
    text += std::string(name) + "\n";
    for (const auto& entry : filled) {
      if (entry.first == name) text += entry.second;
    }
  }
  return text;
}

struct Entry {
  policies policy;
  std::string url, identifier, expiry;
  int list_id;
};

// All rules the device holds, policy by policy.
std::vector<Entry> Drain(const url_rule_serialization_device& device) {
  std::vector<Entry> entries;
  for (int p = 0; p < unknown_policy; ++p) {
    const char *url, *identifier, *expiry;
    int list_id;
    while (device.get_entry(static_cast<policies>(p), url, identifier, expiry, list_id)) {
      entries.push_back({static_cast<policies>(p), url, identifier, expiry, list_id});
    }
  }
  return entries;
}

class RuleFileTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    UxLog::setSink([this](const UxLogRecord& r) { log_.push_back(r.text); });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }
  std::string File(const std::string& content) {
    const std::string path = root() + "/list" + std::to_string(++files_);
    bexo_test::WriteFile(path, content);
    return path;
  }
  std::vector<Entry> Load(const std::string& content, bool translate = false) {
    url_rule_serialization_device device;
    EXPECT_TRUE(device.deserialization(File(content).c_str(), translate, true));
    return Drain(device);
  }

  std::vector<std::string> log_;
  int files_ = 0;
};

TEST_F(RuleFileTest, GraphWritesEverySectionInValueOrderWithoutTranslatedBlocks) {
  double_linked_graph graph;
  ux_Time expiry(2030, 6, 7, 8, 9, 10);
  {
    UrlRuleWriteGuard hold(graph.rule_lock());
    graph._add_entry("b.example/*", block_policy, "id1", &expiry, 5);
    graph._add_entry("a.example/x%2a", block_policy, nullptr, nullptr, 0);
    graph._add_entry("ok.example", allow_policy, nullptr, nullptr, 0);
    graph._add_entry("192.0.2.1/*", translated_block_policy, nullptr, nullptr, 0);
    graph._add_entry("mm.example", mmc_policy, "m", nullptr, 0);
    graph._add_entry("f.example?", filename_policy, "OPP1", nullptr, 0);
  }
  const std::string path = root() + "/out.list";
  ASSERT_TRUE(graph.serialization(path.c_str()));
  const std::string expected =
      kHeader + Sections({{"[filename]", "f.example?-->OPP1-->\n"},
                          {"[allow]", "ok.example-->-->\n"},
                          {"[block]",
                           "b.example/*-->id1-->2030/06/07 08:09:10\n"
                           "a.example/x%2a-->-->\n"},
                          {"[mmc]", "mm.example-->m-->\n"}});
  EXPECT_EQ(expected, bexo_test::ReadFile(path));
  EXPECT_EQ(std::string::npos, bexo_test::ReadFile(path).find("translated"));
}

TEST_F(RuleFileTest, DeviceWritesListIdentifierAndRoundTripsByteForByte) {
  url_rule_serialization_device device;
  ux_Time expiry(2031, 1, 1, 0, 0, 0);
  device._add_entry("dup.example", allow_policy, nullptr, nullptr, 3);
  device._add_entry("dup.example", allow_policy, "x", &expiry, -4);
  const std::string path = root() + "/device.list";
  ASSERT_TRUE(device.serialization(path.c_str()));
  const std::string written = bexo_test::ReadFile(path);
  EXPECT_EQ(kHeader + Sections({{"[allow]",
                                 "dup.example-->-->-->3\n"
                                 "dup.example-->x-->2031/01/01 00:00:00-->-4\n"}}),
            written);

  url_rule_serialization_device reread;
  ASSERT_TRUE(reread.deserialization(path.c_str(), false, true));
  // rules read from a file carry list identifier 0
  std::vector<Entry> entries = Drain(reread);
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ(0, entries[1].list_id);
  EXPECT_EQ("x", entries[1].identifier);
  EXPECT_EQ("2031/01/01 00:00:00", entries[1].expiry);
}

TEST_F(RuleFileTest, GraphRoundTripIsByteForByte) {
  const std::string content =
      kHeader + Sections({{"[web_server]", "ws.example/*-->OPP9-->2040/01/01 00:00:00\n"},
                          {"[block]", "z.example-->-->\na.example/%3f-->i-->\n"},
                          {"[pattern]", "*.ads.*-->-->\n"}});
  const std::string path = File(content);
  double_linked_graph graph;
  ASSERT_TRUE(graph.deserialization(path.c_str(), false, true));
  EXPECT_EQ(4, graph.size());
  const std::string out = root() + "/out.list";
  ASSERT_TRUE(graph.serialization(out.c_str()));
  EXPECT_EQ(content, bexo_test::ReadFile(out));
}

TEST_F(RuleFileTest, ReaderRules) {
  std::vector<Entry> e = Load(
      "before.example\n"             // before any section: block
      "# comment\n"
      "\n"
      "[allow]  \t\n"                // trailing blanks are trimmed
      "a.example-->id7-->\n"         // identifier, no expiry
      "b.example-->id8-->garbage\n"  // bad expiry drops both
      "c.example-->id9-->2030/01/02 03:04:05-->77\n"
      "[Allow]\n"                    // wrong case: not a section, policy stays
      "d.example\n"
      "[nonsense]\n"
      "e.example   \n"
      "   \n"
      "[mmc]\n"
      "last.example");               // unterminated last line: skipped
  ASSERT_EQ(6u, e.size());
  EXPECT_EQ(allow_policy, e[0].policy);
  EXPECT_EQ("a.example", e[0].url);
  EXPECT_EQ("id7", e[0].identifier);
  EXPECT_EQ("", e[0].expiry);
  EXPECT_EQ("b.example", e[1].url);
  EXPECT_EQ("", e[1].identifier);
  EXPECT_EQ("", e[1].expiry);
  EXPECT_EQ("c.example", e[2].url);
  EXPECT_EQ("2030/01/02 03:04:05", e[2].expiry);
  EXPECT_EQ(0, e[2].list_id);
  EXPECT_EQ("d.example", e[3].url);
  EXPECT_EQ(allow_policy, e[3].policy);
  EXPECT_EQ("e.example", e[4].url);
  EXPECT_EQ(block_policy, e[5].policy);
  EXPECT_EQ("before.example", e[5].url);
  EXPECT_TRUE(log_.empty());
}

TEST_F(RuleFileTest, HeaderIs124BytesAndAHeaderOnlyFileLoadsNothing) {
  EXPECT_EQ(124u, kHeader.size());
  EXPECT_EQ(kHeader, url_rule_serialization_io::kFileHeader);
  EXPECT_TRUE(Load(kHeader + Sections({})).empty());
}

TEST_F(RuleFileTest, UnterminatedLineBeforeAnySectionMakesFileInvalid) {
  url_rule_serialization_device device;
  const std::string path = File("kept.example\nunterminated.example");
  EXPECT_TRUE(device.deserialization(path.c_str(), false, true));
  std::vector<Entry> e = Drain(device);
  ASSERT_EQ(1u, e.size()) << "rules before the bad line stay";
  EXPECT_EQ("kept.example", e[0].url);
  ASSERT_EQ(1u, log_.size());
  EXPECT_EQ("WARNING: URL list in file [" + path + "] appears to be invalid and will not be loaded",
            log_[0]);
}

TEST_F(RuleFileTest, OverlongLineIsSkippedAfterASection) {
  const std::string longline(1100, 'x');
  std::vector<Entry> e = Load("[block]\n" + longline + "\nshort.example\n");
  // the first 1063 characters are skipped; the rest of the line is read as a line
  ASSERT_EQ(2u, e.size());
  EXPECT_EQ(std::string(1100 - 1063, 'x'), e[0].url);
  EXPECT_EQ("short.example", e[1].url);
}

TEST_F(RuleFileTest, UnreadableFilesAnswerFalse) {
  url_rule_serialization_device device;
  EXPECT_FALSE(device.deserialization(nullptr, false, true));
  EXPECT_FALSE(device.deserialization((root() + "/missing").c_str(), false, true));
  EXPECT_FALSE(device.serialization(nullptr));
  EXPECT_FALSE(device.serialization((root() + "/no/such/dir/x").c_str()));
}

TEST_F(RuleFileTest, ClearFirstOrAppend) {
  url_rule_serialization_device device;
  const std::string path = File("[block]\na\n");
  ASSERT_TRUE(device.deserialization(path.c_str(), false, false));
  ASSERT_TRUE(device.deserialization(path.c_str(), false, false));
  EXPECT_EQ(2u, Drain(device).size());
  ASSERT_TRUE(device.deserialization(path.c_str(), false, false));
  ASSERT_TRUE(device.deserialization(path.c_str(), false, true));
  EXPECT_EQ(1u, Drain(device).size());
}

TEST_F(RuleFileTest, BlockRulesAreTranslatedToAddresses) {
  UxLog::setLevel(1);
  std::vector<Entry> e = Load(
      "[block]\n"
      "192.0.2.1/x-->id-->\n"
      "198.51.100.7*-->-->\n"
      "203.0.113.5\n"
      "*.example/y\n"          // begins with '*': not translated
      "[allow]\n"
      "192.0.2.9/a\n",         // not a block rule
      true);
  std::vector<std::string> translated;
  for (const Entry& entry : e) {
    if (entry.policy == translated_block_policy) {
      translated.push_back(entry.url);
      if (entry.url == "192.0.2.1/x") {
        EXPECT_EQ("id", entry.identifier);
      }
    }
  }
  EXPECT_EQ((std::vector<std::string>{"192.0.2.1/x", "198.51.100.7*", "203.0.113.5"}),
            translated);
  EXPECT_EQ(8u, e.size());  // 5 rules and 3 translations
  ASSERT_FALSE(log_.empty());
  EXPECT_EQ("url_rule_serialization_io::_do_parse_and_addlist, adding [192.0.2.1/x]", log_[0]);
}

TEST_F(RuleFileTest, TranslationOfLocalhostKeepsTheSuffix) {
  std::vector<Entry> e = Load("[block]\nlocalhost/path\n", true);
  ASSERT_GE(e.size(), 2u);
  bool v4 = false;
  for (const Entry& entry : e) v4 |= entry.url == "127.0.0.1/path";
  EXPECT_TRUE(v4);
}

TEST_F(RuleFileTest, TranslationOffAddsNoAddresses) {
  EXPECT_EQ(1u, Load("[block]\n192.0.2.1/x\n", false).size());
}

TEST(RuleInfoNode, ComparesIdentifiers) {
  ux_Time expiry(2030, 1, 1);
  url_rule_info_node a("u", "i", &expiry, 3);
  EXPECT_EQ("2030/01/01 00:00:00", a.expiry);
  EXPECT_FALSE(a == url_rule_info_node("u", nullptr, &expiry, 3));
  EXPECT_DEATH(url_rule_info_node(nullptr, nullptr, nullptr, 0), "_url_rule");
}

TEST(RuleFileDeath, NullFileStopsWriters) {
  url_rule_serialization_device device;
  EXPECT_DEATH(device._printf_list(nullptr, block_policy), "fp");
  EXPECT_DEATH(device._printf_field(nullptr, "x"), "fp != 0");
  EXPECT_DEATH(device._printf_list(stdout, unknown_policy), "policy < unknown_policy");
}

}  // namespace
