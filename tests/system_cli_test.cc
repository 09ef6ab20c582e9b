// bexo metrics, bexo service and bexo db testdb as a script sees them.
#include <string>

#include "temp_root.h"

namespace {

using bexo_test::RunBexo;
using bexo_test::WriteFile;
using bexo_test::WriteScript;

class SystemCliTest : public bexo_test::TempRootTest {};

TEST_F(SystemCliTest, MetricsJsonReports) {
  WriteFile(Path("/data/file"), std::string(64 << 10, 'x'));
  std::string out;
  ASSERT_EQ(RunBexo("metrics --interval 0.1 --count 2 --json --path " + Path("/data") +
                     " | jq -s -e 'length == 2 and all(.[]; .memory.total_kb > .memory.used_kb"
                     " and .cpu.busy_percent <= 100 and (.cpu.per_cpu_percent | length) > 0"
                     " and .disk.own_kib >= 64 and any(.file_systems[]; .mount_point == \"/\"))'",
                 &out),
            0)
      << out;
  const char* kBad[] = {"--interval 0", "--interval x", "--count 0",
                        "--count -1",   "--bogus",      "--path"};
  for (const char* args : kBad) {
    EXPECT_EQ(RunBexo(std::string("metrics ") + args + " 2>/dev/null", &out), 2) << args;
  }
}

TEST_F(SystemCliTest, ServiceCommands) {
  WriteScript(Path("/usr/bexo/S10KVgood"), "echo \"$1\" >> " + Path("/calls") + "\n");
  WriteScript(Path("/usr/bexo/S10KVbad"), "exit 3\n");
  const std::string unique = "bexo-cli-absent-" + std::to_string(getpid());
  const struct {
    std::string args;
    int code;
    std::string output;
  } kCases[] = {
      {"service start S10KVgood", 0, ""},
      {"service stop S10KVgood", 0, ""},
      {"service start S10KVbad 2>&1", 1, "bexo: start S10KVbad: exited with status 3\n"},
      {"service signal S10KVgood reload", 0,
       "cmdstr: " + Path("/usr/bexo/") + "S10KVgood reload > /dev/null 2>&1\n"},
      {"service status " + unique, 1, unique + " not running\n"},
      {"service status sh", 0, "sh running\n"},
      {"service restart S10KVgood 2>/dev/null", 2, ""},
      {"service signal S10KVgood 2>/dev/null", 2, ""},
  };
  std::string out;
  for (const auto& c : kCases) {
    EXPECT_EQ(RunBexo(c.args, &out), c.code) << c.args;
    EXPECT_EQ(out, c.output) << c.args;
  }
  EXPECT_EQ(bexo_test::ReadFile(Path("/calls")), "start\nstop\nreload\n");
}

TEST_F(SystemCliTest, DbTestdb) {
  std::string out;
  EXPECT_EQ(RunBexo("db testdb 2 a b c", &out), 1);
  EXPECT_EQ(out,
            "<connectdb><error_msg>Generic error.</error_msg><error_no>0</error_no></connectdb>\n");
  WriteScript(Path("/etc/kvelo/bin/testdb.sh"), "echo \"<connectdb><args>$*</args></connectdb>\"\n");
  EXPECT_EQ(RunBexo("db testdb 3 host db", &out), 0);
  EXPECT_EQ(out, "<connectdb><args>3 host db</args></connectdb>\n");
  EXPECT_EQ(RunBexo("db testdb x 2>/dev/null", &out), 2);
}

}  // namespace
