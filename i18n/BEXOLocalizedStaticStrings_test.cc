// The static-string map over the compiled example bundles, its log messages,
// and placeholder filling.
#include "BEXOLocalizedStaticStrings.h"

#include <utf8.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "UxLog.h"
#include "resource_bundles.h"
#include "temp_root.h"

namespace {

class LocalizedStaticStringsTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = bexo_test::InstallResourceBundles(root());
    UxLog::setLevel(3);
    UxLog::setSink([this](const UxLogRecord& r) {
      log_.push_back(std::to_string(r.level) + " " + r.file + ": " + r.text);
    });
  }
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }
  std::map<std::string, std::string> Load(const char* locale, std::vector<const char*> bundles) {
    BEXOLocalizedStaticStrings strings(locale, dir_.c_str(), bundles.data(), bundles.size());
    std::map<std::string, std::string> all;
    strings.ForEachString([&](const char* key, const char* text) { all[key] = text; });
    return all;
  }

  std::string dir_;
  std::vector<std::string> log_;
};

TEST_F(LocalizedStaticStringsTest, LoadsEveryStringOfTheLocalesOwnBundle) {
  auto ja = Load("ja_JP", {"events", "daemon"});
  EXPECT_EQ(ja.size(), 7u);  // ja's own tables only: root's tbl_General is not inherited
  EXPECT_EQ(ja["events/tbl_Storage/tok_DiskUsage"], "{0} のディスク使用率は {1}% です");
  EXPECT_EQ(ja["daemon/nod_CoreDumpPackageMail/tok_subject"], "コアダンプパッケージが生成されました");
  for (const auto& entry : ja) EXPECT_TRUE(utf8::is_valid(entry.second.begin(), entry.second.end()));

  auto root_texts = Load("root", {"events"});
  EXPECT_EQ(root_texts.size(), 6u);
  EXPECT_EQ(root_texts["events/tbl_General/tok_Unknown"], "Unknown event {0}");
  EXPECT_EQ(log_.front(), "3 BEXOLocalizedStaticStrings: Constructing localized string map for locale [ja_JP]");
}

TEST_F(LocalizedStaticStringsTest, LookupsAndMisses) {
  const char* bundles[] = {"events", "no_such_bundle"};
  // The directory given with a trailing "/" reads the same bundles.
  BEXOLocalizedStaticStrings strings("en", (dir_ + "/").c_str(), bundles, 2);
  EXPECT_STREQ(strings.GetLocalizedString("events", "tbl_Service", "tok_Started", "x"), "Service {0} started");
  EXPECT_STREQ(strings.GetLocalizedString("events", "tbl_Service", "tok_None", "default"), "default");
  EXPECT_STREQ(strings.GetLocalizedString("events", "tbl_None", "tok_Started", nullptr), "");
  EXPECT_EQ(log_.back(), "3 BEXOLocalizedStaticStrings: Missed key [events/tbl_None/tok_Started]");
  const std::string warning = "1 BEXOLocalizedStaticStrings: WARNING: Failed to open resource bundle [" +
                              dir_ + "/no_such_bundle] with [2]";  // U_MISSING_RESOURCE_ERROR
  EXPECT_NE(std::find(log_.begin(), log_.end(), warning), log_.end());

  // Missing arguments leave the map empty without reading anything.
  log_.clear();
  BEXOLocalizedStaticStrings empty(nullptr, dir_.c_str(), bundles, 2);
  EXPECT_STREQ(empty.GetLocalizedString("events", "tbl_Service", "tok_Started", nullptr), "");
  EXPECT_EQ(log_.size(), 1u);  // just the miss
}

TEST(FormatLocalizedStringTest, Placeholders) {
  const char* two[] = {"Ann", "3"};
  const char* nested[] = {"<{0}{1}>", "[{1}]"};
  const char* with_null[] = {nullptr, "b"};
  const struct {
    const char* pattern;
    unsigned int size;
    unsigned int count;
    const char** arguments;
    int result;
    const char* expected;
  } kCases[] = {
      {"Hello {0}, you have {1} items", 64, 2, two, 0, "Hello Ann, you have 3 items"},
      {"{0} {1} {2}", 64, 2, two, 0, "Ann 3 {2}"},  // no third argument
      {"{1}{0}{1}{0}", 64, 2, two, 0, "3Ann3Ann"},
      {"0123456789abc", 10, 0, nullptr, 0, "012345678"},
      {"Hello {0}", 8, 1, two, 0, "Hello A"},
      // {0} brought in by argument 0 stays; {1} brought in by it is expanded later.
      {"{0}", 64, 2, nested, 0, "<{0}[{1}]>"},
      {"a{0}b{1}", 64, 2, with_null, 0, "abb"},
      {"{0}", 64, 1, nullptr, 0, ""},
      {"{ 0}{00}{0", 64, 1, two, 0, "{ 0}{00}{0"},
      {"", 1, 2, two, 0, ""},
      {nullptr, 64, 2, two, -1, "untouched"},
      {"x", 0, 2, two, -1, "untouched"},
  };
  for (const auto& c : kCases) {
    char output[64] = "untouched";
    EXPECT_EQ(BEXOLocalizedStaticStrings::FormatLocalizedString(c.pattern, output, c.size, c.count,
                                                               c.arguments),
              c.result)
        << (c.pattern ? c.pattern : "null");
    EXPECT_STREQ(output, c.expected) << (c.pattern ? c.pattern : "null");
  }
  EXPECT_EQ(BEXOLocalizedStaticStrings::FormatLocalizedString("x", nullptr, 8, 0, nullptr), -1);
}

TEST(FormatLocalizedStringTest, SelfExpandingArgumentsStayBounded) {
  // Each index doubles the text: 2^40 characters unless expansion stops at the output size.
  std::vector<std::string> texts;
  for (int i = 1; i <= 40; ++i) texts.push_back("{" + std::to_string(i) + "}{" + std::to_string(i) + "}");
  texts.back() = "ab";
  std::vector<const char*> arguments;
  for (const auto& t : texts) arguments.push_back(t.c_str());
  char output[32];
  ASSERT_EQ(BEXOLocalizedStaticStrings::FormatLocalizedString("{0}", output, sizeof output, 40,
                                                             arguments.data()),
            0);
  std::string expected;
  for (int i = 0; i < 15; ++i) expected += "ab";
  EXPECT_EQ(std::string(output), expected + "a");
}

}  // namespace
