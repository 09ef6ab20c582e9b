#include "ConfigFile.h"

#include "temp_root.h"

namespace {

using bexo_test::WriteFile;

class ConfigFileTest : public bexo_test::TempRootTest {};

TEST_F(ConfigFileTest, ReadsSectionsKeysAndRawData) {
  std::string path = Path("/etc/kvelo/morvane.ini");
  WriteFile(path,
            "\xEF\xBB\xBF; comment\n[Common]\n  lang = ja \nlang = en\nflag\n# hash = key\n"
            "[database]\nPort=5432\n[B]\n[a]\nx=1\n");
  ConfigFile config(path);
  ASSERT_TRUE(config.ok());
  EXPECT_EQ(config.get_value("common", "LANG"), "ja");
  EXPECT_EQ(config.get_value("Common", "flag"), "");
  EXPECT_EQ(config.get_value("Common", "# hash"), "key");
  EXPECT_EQ(config.get_value("Database", "port"), "5432");
  EXPECT_EQ(config.get_value("Common", "missing"), std::nullopt);
  EXPECT_EQ(config.get_value("Missing", "lang"), std::nullopt);

  std::vector<std::string> sections;
  for (const auto& entry : config.GetRawData()) sections.push_back(entry.first);
  EXPECT_EQ(sections, (std::vector<std::string>{"B", "Common", "a", "database"}));  // byte order
  EXPECT_EQ(config.GetRawData().at("Common").size(), 3u);
}

TEST_F(ConfigFileTest, MissingFileIsNotOk) {
  ConfigFile config;
  EXPECT_FALSE(config.read_config(Path("/etc/kvelo/none.ini")));
  EXPECT_FALSE(config.ok());
  EXPECT_EQ(config.get_value("Common", "lang"), std::nullopt);
}

}  // namespace
