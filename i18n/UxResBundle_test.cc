// UxResBundle against the compiled example bundles: ICU's locale fallback,
// missing bundles, tables and keys, the 2047-byte cut, formatted messages.
#include "UxResBundle.h"

#include <utf8.h>

#include <string>

#include "resource_bundles.h"
#include "temp_root.h"

namespace {

class UxResBundleTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = bexo_test::InstallResourceBundles(root());
  }
  std::string Bundle(const std::string& name) const { return dir_ + "/" + name; }

  std::string dir_;
};

const char kJaSubject[] = "コアダンプパッケージが生成されました";
const char kEnSubject[] = "Core dump package generated";

TEST_F(UxResBundleTest, LocaleFallbackAndMissingPieces) {
  const struct {
    const char* bundle;
    const char* locale;
    const char* table;
    const char* key;
    const char* expected;  // null: the lookup fails
  } kCases[] = {
      {"daemon", "ja_JP", "nod_CoreDumpPackageMail", "tok_subject", kJaSubject},
      {"daemon", "ja", "nod_CoreDumpPackageMail", "tok_subject", kJaSubject},
      {"daemon", "en_US", "nod_CoreDumpPackageMail", "tok_subject", kEnSubject},
      {"daemon", "root", "nod_CoreDumpPackageMail", "tok_subject", kEnSubject},
      {"events", "ja_JP", "tbl_Service", "tok_Started", "サービス {0} が開始されました"},
      {"events", "ja_JP", "tbl_General", "tok_Unknown", "Unknown event {0}"},  // table from root
      {"daemon", "ja", "nod_CoreDumpPackageMail", "tok_missing", nullptr},
      {"events", "ja", "tbl_Service", "tok_Unknown", nullptr},  // keys do not fall back
      {"daemon", "ja", "nod_Missing", "tok_subject", nullptr},
      {"no_such_bundle", "ja", "nod_CoreDumpPackageMail", "tok_subject", nullptr},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.bundle) + " " + c.locale + " " + c.table + "/" + c.key);
    UxResBundle bundle(Bundle(c.bundle).c_str(), c.locale);
    char output[UxResBundle::kUTF8OutputSize] = "untouched";
    bool found = bundle.getUTF8String(c.table, c.key, output);
    EXPECT_EQ(found, c.expected != nullptr);
    if (c.expected != nullptr) {
      EXPECT_STREQ(output, c.expected);
      EXPECT_TRUE(utf8::is_valid(output, output + strlen(output)));
    }
  }
  UxResBundle unopened(nullptr, "ja");
  char output[UxResBundle::kUTF8OutputSize];
  EXPECT_FALSE(unopened.opened());
  EXPECT_EQ(unopened.getNodeResBundle("nod_CoreDumpPackageMail"), nullptr);
  EXPECT_FALSE(unopened.getUTF8String("nod_CoreDumpPackageMail", "tok_subject", output));
}

TEST_F(UxResBundleTest, LongTextsAreCutAt2047BytesOnACharacterBoundary) {
  UxResBundle bundle(Bundle("limits").c_str(), nullptr);
  char output[UxResBundle::kUTF8OutputSize + 1];
  output[UxResBundle::kUTF8OutputSize] = 'Z';

  ASSERT_TRUE(bundle.getUTF8String("tbl_Limits", "tok_Ascii", output));
  std::string digits;
  for (int i = 0; i < 210; ++i) digits += "0123456789";
  EXPECT_EQ(std::string(output), digits.substr(0, 2047));

  ASSERT_TRUE(bundle.getUTF8String("tbl_Limits", "tok_Japanese", output));
  std::string japanese;
  for (int i = 0; i < 90; ++i) japanese += "日本語のテキスト";
  EXPECT_EQ(std::string(output), japanese.substr(0, 2046));  // 682 whole characters
  EXPECT_EQ(output[UxResBundle::kUTF8OutputSize], 'Z');
}

TEST_F(UxResBundleTest, FormatsPlaceholdersInTheDefaultLocale) {
  icu::Formattable arguments[2];
  ASSERT_EQ(UxResBundle::getFormattable("プロキシ", &arguments[0]), 0);
  ASSERT_EQ(UxResBundle::getFormattable("137", &arguments[1]), 0);
  const struct {
    const char* locale;
    unsigned int size;
    const char* expected;
  } kCases[] = {
      {"en", 256, "Service プロキシ stopped (exit code 137)"},
      {"ja", 256, "サービス プロキシ が停止しました (終了コード 137)"},
      {"en", 13, "Service プ"},  // 12 bytes fit, the next character would not
      {"en", 1, ""},
  };
  for (const auto& c : kCases) {
    UxResBundle bundle(Bundle("events").c_str(), c.locale);
    char output[256];
    ASSERT_TRUE(bundle.getFormattedUTF8String("tbl_Service", "tok_Stopped", arguments, 2, output, c.size));
    EXPECT_STREQ(output, c.expected) << c.locale << " " << c.size;
  }
  UxResBundle bundle(Bundle("events").c_str(), "en");
  char output[16];
  EXPECT_FALSE(bundle.getFormattedUTF8String("tbl_Service", "tok_None", arguments, 2, output, 16));
  EXPECT_FALSE(bundle.getFormattedUTF8String("tbl_Service", "tok_Stopped", arguments, 2, output, 0));

  std::string too_long(4097, 'x');
  EXPECT_EQ(UxResBundle::getFormattable(too_long.c_str(), &arguments[0]), -1);
  EXPECT_EQ(UxResBundle::getFormattable(too_long.c_str() + 1, &arguments[0]), 0);
}

}  // namespace
