// sys_log_writer: the language table, the entries it writes, the three
// switches, the terminal fallback, and the one retry on lock contention.
#include "sys_log_writer.h"

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "BEXOFileMutex.h"
#include "slog_test_util.h"
#include "temp_root.h"
#include "ux_LOG_LogConfig.h"

namespace {

using bexo_test::Jq;
using bexo_test::LogFiles;

constexpr char kDir[] = "/var/bexo/syslog";

class SysLogWriterTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    sys_log_writer::setDebugMode(false);
    sys_log_writer::setTermMode(false);
    ux_LOG_LogConfig::SetLockWaitMs(ux_LOG_LogConfig::kDefaultLockWaitMs);
    TempRootTest::TearDown();
  }
  std::string Descriptions(const std::string& name) {
    return Jq(".attrs[0].value", LogFiles(Path(kDir), name));
  }
};

TEST_F(SysLogWriterTest, LanguageSelectsTheLocaleByItsFirstTwoCharacters) {
  const struct {
    const char* ini;
    int locale;
  } cases[] = {{"lang=fr-CA", 1}, {"lang=de", 2}, {"lang=it", 3}, {"lang=ja", 4},
               {"lang=ko", 5},    {"lang=zh_TW", 6}, {"lang=pt", 0}, {"lang=en", 0},
               {"", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ini);
    ux_LOG_LogConfig::SetLocale(-1);
    bexo_test::WriteFile(Path("/etc/kvelo/morvane.ini"), std::string("[Common]\n") + c.ini + "\n");
    sys_log_writer writer("lang", kDir, nullptr);
    EXPECT_EQ(ux_LOG_LogConfig::GetLocale(), c.locale);
  }
  EXPECT_EQ(ux_LOG_LogConfig::GetCodePage(), "UTF8");
  EXPECT_EQ(ux_LOG_LogConfig::GetDefinitionPath(), "/etc/kvelo/slf2.ldf");
}

TEST_F(SysLogWriterTest, LogWritesOneDescriptionEntryInAReadableFile) {
  mode_t saved = umask(077);
  {
    sys_log_writer writer("daemon", nullptr, nullptr);  // directory from the default
    writer.log("started");
  }
  EXPECT_EQ(umask(saved), 077u);
  const std::string files = LogFiles(Path("/etc/kvelo/log"), "daemon");
  EXPECT_EQ(Jq("[.kind, .level, .attrs]", files),
            R"([67108864,5,[{"name":"description","type":"string","value":"started"}]])" "\n");
  struct stat info;
  ASSERT_EQ(stat(Path("/etc/kvelo/log/daemon.log").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0664u);
}

TEST_F(SysLogWriterTest, SwitchesDecideWhereLogAndDebugLogGo) {
  const struct {
    const char* name;
    std::function<void()> set;
    const char* in_file;
    const char* on_terminal;
  } cases[] = {
      {"default", [] {}, "\"log\"\n", ""},
      {"debug", [] { sys_log_writer::setDebugMode(true); }, "\"log\"\n\"debug\"\n", ""},
      {"whole_log_off",
       [] {
         sys_log_writer::setDebugMode(true);
         sys_log_writer::setWholeLogOff();
       },
       "\"log\"\n", ""},
      {"off_then_debug",
       [] {
         sys_log_writer::setWholeLogOff();
         sys_log_writer::setDebugMode(true);
       },
       "\"log\"\n\"debug\"\n", ""},
      {"off_then_term_off",
       [] {
         sys_log_writer::setDebugMode(true);
         sys_log_writer::setWholeLogOff();
         sys_log_writer::setTermMode(false);
       },
       "\"log\"\n\"debug\"\n", ""},
      {"term",
       [] {
         sys_log_writer::setDebugMode(true);
         sys_log_writer::setTermMode(true);
       },
       "", "log\ndebug\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    sys_log_writer::setDebugMode(false);
    sys_log_writer::setTermMode(false);
    c.set();
    sys_log_writer writer(c.name, kDir, nullptr);
    testing::internal::CaptureStdout();
    writer.log("log");
    writer.debug_log("debug");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.on_terminal);
    EXPECT_EQ(Descriptions(c.name), c.in_file);
  }
}

TEST_F(SysLogWriterTest, WriterWithoutDeviceFallsBackToTheTerminal) {
  bexo_test::WriteFile(Path("/var/bexo/plainfile"), "");
  sys_log_writer::setDebugMode(true);
  sys_log_writer writer("x", "/var/bexo/plainfile", nullptr);
  testing::internal::CaptureStdout();
  writer.log("first");
  writer.debug_log("never");
  writer.log("second");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first\nsecond\n");
}

// The lock held elsewhere: two failures give -1; released before the retry,
// the re-created device writes the entry.
TEST_F(SysLogWriterTest, WriteEntryRetriesOnceWhenTheLockIsContended) {
  ux_LOG_LogConfig::SetLockWaitMs(300);
  sys_log_writer writer("busy", kDir, nullptr);
  ux_LOG_LogEntry entry(0x4000000, 5);
  entry.AddAttribMBStr("description", "x");
  EXPECT_EQ(writer.WriteEntry(nullptr), -1);

  const struct {
    int hold_ms;
    int result;
  } cases[] = {{1500, -1}, {450, 0}};  // released in the retry's wait, or not
  for (const auto& c : cases) {
    std::atomic<bool> held{false};
    std::thread holder([&] {
      BEXOFileMutex lock((Path(kDir) + "/busy.lock").c_str(), true);
      lock.lock();
      held = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(c.hold_ms));
      lock.unlock();
    });
    while (!held) std::this_thread::yield();
    EXPECT_EQ(writer.WriteEntry(&entry), c.result) << c.hold_ms;
    holder.join();
  }
  EXPECT_EQ(Descriptions("busy"), "\"x\"\n");
}

}  // namespace
