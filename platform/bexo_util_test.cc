#include "bexo_util.h"

#include "temp_root.h"

namespace {

TEST(BexoUtilTest, HexPairs) {
  const struct {
    const char* text;
    int value;
  } kCases[] = {{"%41", 0x41}, {"41", 0x41}, {"%ff", 255}, {"FF", 255}, {"%aB", 0xab}, {"00", 0},
                {"%4", -1},    {"%g1", -1},  {"1g", -1},   {"", -1},    {"%", -1},     {"%%41", -1}};
  for (const auto& c : kCases) EXPECT_EQ(hexto4u(c.text), c.value) << c.text;
  EXPECT_EQ(hexto4u(nullptr), -1);
}

TEST(BexoUtilTest, BoundedFormatting) {
  char buffer[8];
  EXPECT_EQ(bexo_snprintf(buffer, sizeof buffer, "%s-", "abc"), 4);
  EXPECT_STREQ(buffer, "abc-");
  EXPECT_EQ(bexo_snprintf(buffer, sizeof buffer, "%s", "0123456789"), 7);
  EXPECT_STREQ(buffer, "0123456");
  EXPECT_EQ(bexo_snprintf(buffer, 0, "%s", "x"), 0);
}

TEST(BexoUtilTest, TrailingSlash) {
  EXPECT_TRUE(CheckPathLastSlash("/usr/bexo/"));
  EXPECT_FALSE(CheckPathLastSlash("/usr/bexo"));
  EXPECT_FALSE(CheckPathLastSlash(""));
  EXPECT_FALSE(CheckPathLastSlash(nullptr));
}

class BexoUtilConfigTest : public bexo_test::TempRootTest {};

TEST_F(BexoUtilConfigTest, InstallPathAndTimeZone) {
  char buffer[256];
  EXPECT_EQ(ReadPath(buffer, sizeof buffer), static_cast<int>(Path("/usr/bexo/").size()));
  EXPECT_EQ(std::string(buffer), Path("/usr/bexo/"));
  GetTZOffset(buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "");

  bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"),
                       "[Common]\nInstallPath=/opt/gw\nTimeZone=Asia/Tokyo\n");
  ReadPath(buffer, sizeof buffer);
  EXPECT_EQ(std::string(buffer), Path("/opt/gw"));
  GetTZOffset(buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "Asia/Tokyo");
  GetTZOffset(buffer, 5);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(ReadPath(buffer, 4), -1);
}

}  // namespace
