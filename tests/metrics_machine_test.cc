// The metrics on the real machine, next to free, df, statvfs, nproc and
// getrusage read in the same moment.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "metrics.h"
#include "temp_root.h"

namespace {

using bexo_test::RunCommand;

class MachineMetricsTest : public bexo_test::TempRootTest {};

// The numbers of one line of a command's output that begins with `label`.
std::vector<unsigned long long> Numbers(const std::string& output, const std::string& label) {
  std::istringstream lines(output);
  std::vector<unsigned long long> values;
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, label.size(), label) != 0) continue;
    std::istringstream words(line.substr(label.size()));
    for (unsigned long long v; words >> v;) values.push_back(v);
  }
  return values;
}

TEST_F(MachineMetricsTest, MemoryTotalsMatchFree) {
  std::string free_output;
  ASSERT_EQ(RunCommand("free -k", &free_output), 0);
  unsigned long used, total, swap_used, swap_total;
  ASSERT_TRUE(MetricGetMemAndSwapUtilization(used, total, swap_used, swap_total));
  ASSERT_FALSE(Numbers(free_output, "Mem:").empty());
  ASSERT_FALSE(Numbers(free_output, "Swap:").empty());
  EXPECT_EQ(total, Numbers(free_output, "Mem:")[0]);
  EXPECT_EQ(swap_total, Numbers(free_output, "Swap:")[0]);
  EXPECT_LT(used, total);
}

TEST_F(MachineMetricsTest, FileSystemsMatchDf) {
  std::string df;
  ASSERT_EQ(RunCommand("df -k --output=target,size,used 2>/dev/null", &df), 0);
  std::map<std::string, std::vector<unsigned long long>> by_mount;
  std::istringstream lines(df);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string target;
    unsigned long long size, used;
    if (words >> target >> size >> used) by_mount[target] = {size, used};
  }
  unsigned int size = 0;
  ASSERT_EQ(MetricEnumFileSystems(&size, nullptr), 0);
  std::vector<char> buffer(size);
  auto* records = reinterpret_cast<MetricFileSystemInfo*>(buffer.data());
  const int count = MetricEnumFileSystems(&size, records);
  ASSERT_GT(count, 0);
  int compared = 0;
  for (int i = 0; i < count; ++i) {
    auto it = by_mount.find(records[i].mountPoint);
    struct statvfs fs;
    if (it == by_mount.end() || statvfs(records[i].mountPoint, &fs) != 0) continue;
    // df counts in fragments (f_frsize); the metrics in preferred blocks (f_bsize).
    const unsigned long long scale_num = fs.f_bsize, scale_den = fs.f_frsize;
    EXPECT_EQ(records[i].total, it->second[0] * scale_num / scale_den) << records[i].mountPoint;
    // Other writers move "used" between the two reads.
    EXPECT_NEAR(static_cast<double>(records[i].used),
                static_cast<double>(it->second[1] * scale_num / scale_den), 65536.0)
        << records[i].mountPoint;
    ++compared;
  }
  EXPECT_GT(compared, 0);

  char mount_point[4096], device[4096];
  ASSERT_TRUE(MetricGetMountInfo(root().c_str(), mount_point, device));
  std::string df_target;
  ASSERT_EQ(RunCommand("df --output=target " + root() + " | tail -1", &df_target), 0);
  EXPECT_EQ(std::string(mount_point) + "\n", df_target);
}

TEST_F(MachineMetricsTest, PerCpuCountMatchesNproc) {
  std::string nproc;
  ASSERT_EQ(RunCommand("nproc --all", &nproc), 0);
  std::vector<MetricCpuUtilization> cpus(1024);
  ASSERT_TRUE(MetricGetCpuUtilization(cpus.size(), cpus.data()));
  unsigned long seen = 0;
  for (const auto& cpu : cpus) seen += cpu.total > 0;
  EXPECT_EQ(seen, std::stoul(nproc));
  unsigned long long busy, total;
  ASSERT_TRUE(MetricGetCpuUtilization(busy, total));
  EXPECT_LE(busy, total);
}

long long RusageTicks(int who) {
  struct rusage usage;
  getrusage(who, &usage);
  const long long micros = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000LL +
                           usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
  return micros * sysconf(_SC_CLK_TCK) / 1000000;
}

// A child under a user id of its own (when run as root; dumpable again, so
// that its /proc entry shows that id) is the only own process: while it
// spins, the own figure must grow by its getrusage time.
TEST_F(MachineMetricsTest, OwnCpuGrowsByTheBusyProcessTime) {
  if (getuid() != 0) GTEST_SKIP() << "needs root to run under a user id of its own";
  int report[2];
  ASSERT_EQ(pipe(report), 0);
  const pid_t child = fork();
  if (child == 0) {
    if (setgid(54321) != 0 || setuid(54321) != 0) _exit(3);
    prctl(PR_SET_DUMPABLE, 1);
    unsigned long long own0, own1, busy, total;
    const long long start = RusageTicks(RUSAGE_SELF);
    if (!MetricGetCpuUtilization(own0, busy, total)) _exit(4);
    for (volatile unsigned long spin = 0; RusageTicks(RUSAGE_SELF) - start < 40;) spin = spin + 1;
    if (!MetricGetCpuUtilization(own1, busy, total)) _exit(5);
    const long long pair[2] = {static_cast<long long>(own1 - own0),
                               RusageTicks(RUSAGE_SELF) - start};
    _exit(write(report[1], pair, sizeof pair) == sizeof pair ? 0 : 6);
  }
  close(report[1]);
  long long pair[2] = {-1, -1};
  EXPECT_EQ(read(report[0], pair, sizeof pair), static_cast<ssize_t>(sizeof pair));
  close(report[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_GE(pair[1], 40);
  // Ticks are cut at different moments in /proc and in getrusage.
  EXPECT_NEAR(pair[0], pair[1], 3) << "own grew " << pair[0] << ", getrusage " << pair[1];
}

}  // namespace
