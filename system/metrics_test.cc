// The /proc readers against a fake /proc tree: the files' edge cases, the
// own-process sums, and the mount table walks.
#include "metrics.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "proc_files.h"
#include "temp_root.h"

namespace {

using bexo_test::WriteFile;

class FakeProcTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    proc_ = root() + "/proc";
    bexo::SetProcRootForTesting(proc_);
  }
  void TearDown() override {
    bexo::SetProcRootForTesting("");
    TempRootTest::TearDown();
  }
  void Proc(const std::string& name, const std::string& text) {
    WriteFile(proc_ + "/" + name, text);
  }

  std::string proc_;
};

TEST_F(FakeProcTest, MachineWideCpu) {
  const struct {
    const char* stat;
    bool ok;
    unsigned long long busy, total;
  } kCases[] = {
      {"cpu  10 20 30 400 5 6 7 8 0 0\ncpu0 1 1 1 1 1 1 1 1 0 0\n", true, 86, 486},
      // 64-bit sums: no wrap at 2^32, unlike the per-CPU form.
      {"cpu  4294967296 4294967296 0 1 0 0 0 0 0 0\n", true, 8589934592ULL, 8589934593ULL},
      {"intr 1 2\ncpu  10 20 30 400 5 6 7 8 0 0\n", false, 0, 0},
      {"cpu0 10 20 30 400 5 6 7 8 0 0\n", false, 0, 0},
      {"cpu  10 20 x0 400 5 6 7 8 0 0\n", false, 0, 0},
      {"cpu  10 20 30 400 5 6 7\n", false, 0, 0},
      {"cpu  10 20 30 400 5 6 7 8", false, 0, 0},
  };
  for (const auto& c : kCases) {
    Proc("stat", c.stat);
    unsigned long long busy = 99, total = 99;
    EXPECT_EQ(MetricGetCpuUtilization(busy, total), c.ok) << c.stat;
    EXPECT_EQ(busy, c.busy) << c.stat;
    EXPECT_EQ(total, c.total) << c.stat;
  }
}

TEST_F(FakeProcTest, PerCpuSumsIn32Bits) {
  using Cpus = std::vector<MetricCpuUtilization>;
  const struct {
    const char* stat;
    unsigned long count;
    bool ok;
    Cpus expected;
  } kCases[] = {
      {"cpu  9 9 9 9 9 9 9 9 0 0\ncpu0 1 2 3 40 0 0 0 0 0 0\ncpu1 5 0 0 5 0 0 0 1 0 0\nintr 7\n",
       3,
       true,
       {{46, 6}, {11, 6}, {0, 0}}},
      {"cpu0 1 2 3 40 0 0 0 0 0 0\ncpu1 5 0 0 5 0 0 0 1 0 0\n", 1, true, {{46, 6}}},
      // Counters and sums wrap at 2^32; busy is total - idle in 32 bits too.
      {"cpu0 4294967000 0 0 300 0 0 0 0 0 0\n", 1, true, {{4, 4294967000u}}},
      // A malformed number ends the walk; what was stored stays.
      {"cpu0 1 1 1 1 1 1 1 1\ncpu1 1 x 1 1 1 1 1 1\ncpu2 1 1 1 1 1 1 1 1\n",
       3,
       true,
       {{8, 7}, {0, 0}, {0, 0}}},
      {"cpu0 1 1 1 1 1 1 1\n", 1, false, {{0, 0}}},
      {"cpu7 1 1 1 1 1 1 1 1\n", 2, false, {{0, 0}, {0, 0}}},
  };
  for (const auto& c : kCases) {
    Proc("stat", c.stat);
    Cpus cpus(c.count, MetricCpuUtilization{77, 77});
    EXPECT_EQ(MetricGetCpuUtilization(c.count, cpus.data()), c.ok) << c.stat;
    for (size_t i = 0; i < c.count; ++i) {
      EXPECT_EQ(cpus[i].total, c.expected[i].total) << c.stat << " cpu" << i;
      EXPECT_EQ(cpus[i].busy, c.expected[i].busy) << c.stat << " cpu" << i;
    }
  }
}

TEST_F(FakeProcTest, OneReadTakesAtMost4095Bytes) {
  const std::string head = "cpu0 1 1 1 1 1 1 1 1\n";
  // cpu1's 21-byte line starts at byte 4075: its line feed is byte 4096.
  const std::string pad = "intr " + std::string(4075 - head.size() - 6, '0') + "\n";
  Proc("stat", head + pad + "cpu1 1 1 1 1 1 1 1 1\ncpu2 1 1 1 1 1 1 1 1\n");
  MetricCpuUtilization cpus[3];
  EXPECT_TRUE(MetricGetCpuUtilization(3, cpus));
  EXPECT_EQ(cpus[0].total, 8u);
  EXPECT_EQ(cpus[1].total, 0u);  // its last counter has no separator left
  EXPECT_EQ(cpus[2].total, 0u);
  Proc("stat", head + pad.substr(1) + "cpu1 1 1 1 1 1 1 1 1\n");
  EXPECT_TRUE(MetricGetCpuUtilization(3, cpus));
  EXPECT_EQ(cpus[1].total, 8u);  // one byte earlier, the whole line fits
}

TEST_F(FakeProcTest, MemoryAndSwap) {
  const std::string kFull =
      "MemTotal:       16000 kB\nMemFree:         4000 kB\nMemAvailable:    9000 kB\n"
      "Buffers:          500 kB\nCached:          1500 kB\nSwapCached:        10 kB\n"
      "SwapTotal:       2000 kB\nSwapFree:        1800 kB\n";
  const struct {
    std::string meminfo;
    bool mem_ok, swap_ok;
    unsigned long used, total, swap_used, swap_total;
  } kCases[] = {
      {kFull, true, true, 10000, 16000, 200, 2000},
      // "SwapCached:" must not stand in for a missing "Cached:".
      {"MemTotal: 16000 kB\nMemFree: 4000 kB\nBuffers: 500 kB\nSwapCached: 10 kB\n"
       "SwapTotal: 2000 kB\nSwapFree: 1800 kB\n",
       false, false, 0, 0, 0, 0},
      {"MemTotal: 16000 kB\nMemFree: 4000 kB\nBuffers: 500 kB\nCached: 1500 kB\nSwapTotal: 2000 "
       "kB\n",
       true, false, 10000, 16000, 0, 0},
      {"MemTotal: 16000 kB\nMemFree: x kB\nBuffers: 500 kB\nCached: 1500 kB\n", false, false, 0, 0,
       0, 0},
      {"", false, false, 0, 0, 0, 0},
  };
  for (const auto& c : kCases) {
    Proc("meminfo", c.meminfo);
    unsigned long used = 9, total = 9;
    EXPECT_EQ(MetricGetMemoryUtilization(used, total), c.mem_ok) << c.meminfo;
    EXPECT_EQ(used, c.mem_ok ? c.used : 0) << c.meminfo;
    EXPECT_EQ(total, c.mem_ok ? c.total : 0) << c.meminfo;
    unsigned long mem_used = 9, mem_total = 9, swap_used = 9, swap_total = 9;
    EXPECT_EQ(MetricGetMemAndSwapUtilization(mem_used, mem_total, swap_used, swap_total), c.swap_ok)
        << c.meminfo;
    EXPECT_EQ(mem_used, c.swap_ok ? c.used : 0) << c.meminfo;
    EXPECT_EQ(mem_total, c.swap_ok ? c.total : 0) << c.meminfo;
    EXPECT_EQ(swap_used, c.swap_used) << c.meminfo;
    EXPECT_EQ(swap_total, c.swap_total) << c.meminfo;
  }
}

TEST_F(FakeProcTest, OwnProcessSums) {
  Proc("stat", "cpu  10 20 30 400 5 6 7 8 0 0\n");
  Proc("meminfo", "MemTotal: 100 kB\nMemFree: 10 kB\nBuffers: 10 kB\nCached: 10 kB\n");
  Proc("100/stat", "100 (gw) S 4 5 6 7 8 9 10 11 12 13 1000 234 7 7\n");
  Proc("100/statm", "5000 300 100 10 0 200 0\n");
  // A name with a blank shifts the fields: the plain split reads 13 and 500.
  Proc("101/stat", "101 (gw worker) S 4 5 6 7 8 9 10 11 12 13 500 600 700\n");
  Proc("abc/stat", "1 (x) S 4 5 6 7 8 9 10 11 12 13 99999 99999 0\n");
  Proc("102", "a file, not a process directory\n");
  Proc("103/stat", "103 (other) S 4 5 6 7 8 9 10 11 12 13 77777 77777 0\n");
  Proc("103/statm", "5000 9000 1 0 0 0 0\n");
  // Process 103 belongs to another user (without root: is no process at all).
  if (getuid() == 0) {
    ASSERT_EQ(chown((proc_ + "/103").c_str(), 65534, 65534), 0);
  } else {
    ASSERT_EQ(rename((proc_ + "/103").c_str(), (proc_ + "/abd").c_str()), 0);
  }

  unsigned long long own = 0, busy = 0, total = 0;
  EXPECT_TRUE(MetricGetCpuUtilization(own, busy, total));
  EXPECT_EQ(own, 1234u + 513u);
  EXPECT_EQ(busy, 86u);
  unsigned long own_kb = 0, used = 0, mem_total = 0;
  EXPECT_TRUE(MetricGetMemoryUtilization(own_kb, used, mem_total));
  EXPECT_EQ(own_kb, 800u);
  EXPECT_EQ(used, 70u);

  // Without a readable /proc/stat the own figure is not returned either.
  Proc("stat", "intr 1\n");
  EXPECT_FALSE(MetricGetCpuUtilization(own, busy, total));
  EXPECT_EQ(own + busy + total, 0u);

  bexo::SetProcRootForTesting(root() + "/missing");
  own_kb = used = mem_total = 5;
  EXPECT_FALSE(MetricGetMemoryUtilization(own_kb, used, mem_total));
  EXPECT_EQ(own_kb + used + mem_total, 0u);
}

TEST_F(FakeProcTest, EnumFileSystemsFillsBothEndsOfTheBuffer) {
  const std::string dir = root();
  Proc("mounts", "/dev/vda / ext4 rw 0 0\nproc /proc proc rw 0 0\nnone " + dir +
                     " tmpfs rw 0 0\nfakefs " + dir + " ext4 rw 0 0\n");
  const size_t need =
      (2 + 9) + (dir.size() + 1 + 5) + (dir.size() + 1 + 7) + 3 * sizeof(MetricFileSystemInfo);

  unsigned int size = 0;
  EXPECT_EQ(MetricEnumFileSystems(&size, nullptr), 0);
  EXPECT_EQ(size, need);

  // One byte short: still 0, and nothing written past the buffer (ASan).
  size = static_cast<unsigned int>(need - 1);
  auto* small = static_cast<MetricFileSystemInfo*>(malloc(need - 1));
  EXPECT_EQ(MetricEnumFileSystems(&size, small), 0);
  EXPECT_EQ(size, need);
  free(small);

  size = static_cast<unsigned int>(need);
  auto* exact = static_cast<MetricFileSystemInfo*>(malloc(need));
  ASSERT_EQ(MetricEnumFileSystems(&size, exact), 2);
  EXPECT_EQ(size, need);
  const char* end = reinterpret_cast<const char*>(exact) + need;
  EXPECT_STREQ(exact[0].mountPoint, "/");
  EXPECT_EQ(exact[0].mountPoint, end - 2);
  EXPECT_STREQ(exact[0].device, "/dev/vda");
  EXPECT_STREQ(exact[1].mountPoint, dir.c_str());
  EXPECT_STREQ(exact[1].device, "fakefs");
  struct statvfs fs;
  ASSERT_EQ(statvfs(dir.c_str(), &fs), 0);
  EXPECT_EQ(exact[1].total, static_cast<unsigned long long>(fs.f_blocks) * fs.f_bsize / 1024);
  free(exact);

  Proc("mounts", "/dev/vda / ext4 rw 0 0\ngone " + dir + "/nowhere ext4 rw 0 0\n");
  size = 4096;
  std::vector<char> big(size);
  EXPECT_EQ(MetricEnumFileSystems(&size, reinterpret_cast<MetricFileSystemInfo*>(big.data())), -1);
  unlink((proc_ + "/mounts").c_str());
  EXPECT_EQ(MetricEnumFileSystems(&size, reinterpret_cast<MetricFileSystemInfo*>(big.data())), -1);
}

TEST_F(FakeProcTest, MountInfoTakesTheFirstEntryOnThePathsDevice) {
  const std::string dir = root();
  WriteFile(dir + "/sub/file", "x");
  Proc("mounts",
       "proc /proc proc rw 0 0\nfakefs " + dir + " ext4 rw 0 0\nlater " + dir + " ext4 rw 0 0\n");
  char mount_point[4096] = "junk", device[4096] = "junk";
  EXPECT_TRUE(MetricGetMountInfo((dir + "/sub/file").c_str(), mount_point, device));
  EXPECT_EQ(mount_point, dir);
  EXPECT_STREQ(device, "fakefs");

  EXPECT_FALSE(MetricGetMountInfo((dir + "/missing").c_str(), mount_point, device));
  EXPECT_STREQ(mount_point, "");
  EXPECT_STREQ(device, "");
  Proc("mounts", "proc /proc proc rw 0 0\n");
  EXPECT_FALSE(MetricGetMountInfo(dir.c_str(), mount_point, device));
}

}  // namespace
