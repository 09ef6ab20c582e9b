#include "UxLog.h"

#include <unistd.h>

#include "temp_root.h"

namespace {

using bexo_test::ReadFile;
using bexo_test::WriteFile;

class UxLogTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    UxLog::setSink(nullptr);
    TempRootTest::TearDown();
  }
};

TEST_F(UxLogTest, ThresholdAndFileComeFromTheConfiguration) {
  WriteFile(Path("/etc/kvelo/morvane.ini"),
            "[debug]\nux_log_level = 2\nux_log_file = /var/bexo/log/debug.log\n");
  UxLog::reloadConfig();
  EXPECT_TRUE(UxLog::canLog(1));
  EXPECT_TRUE(UxLog::canLog(2));
  EXPECT_FALSE(UxLog::canLog(3));
  UX_LOG(1, "Sample.cpp", "Method", "ERROR: code %d\n", 42);
  UX_LOG(3, "Sample.cpp", "Method", "not written");
  std::string line = ReadFile(Path("/var/bexo/log/debug.log"));
  std::string pid = " " + std::to_string(getpid()) + " ";
  EXPECT_NE(line.find(pid), std::string::npos) << line;
  EXPECT_NE(line.find(" 1 Sample.cpp:"), std::string::npos) << line;
  EXPECT_NE(line.find(" Method: ERROR: code 42\n"), std::string::npos) << line;
  EXPECT_EQ(line.find("not written"), std::string::npos);
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
}

TEST_F(UxLogTest, DefaultsToLevelOne) {
  UxLog::reloadConfig();
  EXPECT_EQ(UxLog::level(), 1);
  EXPECT_FALSE(UxLog::canLog(3));
}

TEST_F(UxLogTest, SinkReceivesMessagesAndLongTextIsKept) {
  std::vector<std::string> texts;
  UxLog::setLevel(3);
  UxLog::setSink([&](const UxLogRecord& r) { texts.push_back(r.function + std::string("|") + r.text); });
  std::string big(2000, 'z');
  UX_LOG(3, "F.cpp", "Fn", "%s", big.c_str());
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0], "Fn|" + big);
}

}  // namespace
