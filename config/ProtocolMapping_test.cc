// ProtocolMapping over a test appcMapping.ini in the product home directory.
#include "ProtocolMapping.h"

#include <stdlib.h>

#include <string>

#include "temp_root.h"

namespace {

using BEXO::AppControl::ProtocolMapping;

class ProtocolMappingTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    unsetenv("BEXO_HOME");
    TempRootTest::TearDown();
  }
};

// Games comes first in the file, Chat first in byte order; "chat" merges into Chat.
constexpr char kMapping[] =
    "[Games]\n"
    "100=Solitaire\n"
    "7=Moved Later\n"
    "[Chat]\n"
    "7=Talk=extra\n"
    "12abc=Twelve\n"
    "0=Zero\n"
    "3200=Too Big\n"
    "3199=Last\n"
    "abc=Letters\n"
    "-5=Negative\n"
    "[chat]\n"
    "13=Merged\n"
    "[Zeta]\n"
    "7=Overwrites Chat\n"
    "42=Folded\n";

TEST_F(ProtocolMappingTest, CategoriesInByteOrderAndSkippedKeys) {
  bexo_test::WriteFile(Path("/etc/kvelo/appcMapping.ini"), kMapping);
  ProtocolMapping mapping;
  const struct {
    unsigned int id;
    bool interested;
    const char* name;
    const char* category;
  } kCases[] = {
      {7, true, "Overwrites Chat", "Zeta"},  // the later section in byte order wins
      {12, true, "Twelve", "Chat"},
      {13, true, "Merged", "Chat"},
      {100, true, "Solitaire", "Games"},
      {3199, true, "Last", "Chat"},
      {42, true, "Folded", "Zeta"},
      {0, false, "", "Chat"},  // identifier 0 starts in category 0
      {1, false, "", ""},
      {3200, false, "", ""},
      {4000000000u, false, "", ""},
  };
  for (const auto& c : kCases) {
    if (c.id < ProtocolMapping::kTableSize) {
      EXPECT_EQ(mapping.IsInterestedProtocol(c.id), c.interested) << c.id;
    }
    EXPECT_EQ(mapping.GetProtocolName(c.id), c.name) << c.id;
    EXPECT_EQ(mapping.GetCategoryName(c.id), c.category) << c.id;
  }
  EXPECT_EQ(mapping.GetTotalProtocolCount(), 3200);

  // A value with "=" in it: the name stops there.
  bexo_test::WriteFile(Path("/etc/kvelo/appcMapping.ini"), "[Chat]\n7=Talk=extra\n");
  ASSERT_TRUE(mapping.InitializeMappingTable());
  EXPECT_EQ(mapping.GetProtocolName(7), "Talk");
  EXPECT_EQ(mapping.GetProtocolName(100), "");  // reloading forgets the old table
}

TEST_F(ProtocolMappingTest, HomeFromBexoHomeAndMissingFile) {
  ProtocolMapping missing;
  EXPECT_FALSE(missing.InitializeMappingTable());
  EXPECT_FALSE(missing.IsInterestedProtocol(100));
  EXPECT_EQ(missing.GetCategoryName(0), "");
  EXPECT_EQ(ProtocolMapping::GetHomeDirectory(), root() + "/etc/kvelo");

  const std::string home = root() + "/home";
  bexo_test::WriteFile(home + "/appcMapping.ini", "[Mail]\n25=SMTP\n");
  setenv("BEXO_HOME", home.c_str(), 1);
  ProtocolMapping mapping;
  EXPECT_EQ(mapping.GetProtocolName(25), "SMTP");
  EXPECT_EQ(mapping.GetCategoryName(25), "Mail");
}

TEST(ProtocolMappingStatics, UnclassifiedFolding) {
  for (unsigned int id : {3u, 5u, 6u, 42u, 203u, 205u, 216u}) {
    EXPECT_EQ(ProtocolMapping::TransformProtocolID(id), 4u);
  }
  for (unsigned int id : {0u, 4u, 7u, 43u, 204u, 3199u, 5000u}) {
    EXPECT_EQ(ProtocolMapping::TransformProtocolID(id), id);
  }
}

}  // namespace
