// The own-disk walk over a real tree: hard links shared out, other owners,
// unreadable and vanishing directories, links not followed.
#include "system/disk_usage.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "metrics.h"
#include "temp_root.h"

namespace {

using bexo_test::WriteFile;
namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

class DiskUsageTest : public bexo_test::TempRootTest {};

// One change to the tree ($T; $O is outside it) and what it must add to the
// walk's total, in KiB of fully written files.
const struct {
  const char* change;
  long long delta;
} kSteps[] = {
    {"head -c 98304 /dev/zero > $T/sub/new", 96},
    {"ln $T/sub/new $T/new2", 0},    // two links inside: 48 + 48
    {"ln $T/sub/new $O/new3", -32},  // a third outside: 32 + 32 stay
    {"chmod 700 $T/locked; head -c 65536 /dev/zero > $T/locked/in; chmod 0 $T/locked", 0},
    {"head -c 262144 /dev/zero > $O/large; ln -s $O/large $T/sym", 0},  // not followed
    {"rm $T/foreign", 0},                                               // another owner's file
};

// Runs the steps in a child that walks as the tree's owner (nobody, when the
// test runs as root, so that the locked directory is unreadable), and returns
// "ok total" after the baseline and each step, then the four-output form's.
std::string WalkAfterEachStep(const std::string& tree) {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    if (getuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) _exit(3);
    std::string out;
    auto walk = [&] {
      unsigned long long total = 0;
      const bool ok = getProcessDiskUsage(tree.c_str(), getuid(), total);
      out += std::to_string(ok) + " " + std::to_string(total) + "\n";
    };
    walk();
    for (const auto& step : kSteps) {
      if (system(step.change) != 0) _exit(4);
      walk();
    }
    unsigned long long own = 0, used, total;
    const bool ok = MetricGetFileSystemUtilization(tree.c_str(), own, used, total);
    out += std::to_string(ok) + " " + std::to_string(own) + "\n";
    _exit(write(fds[1], out.data(), out.size()) == static_cast<ssize_t>(out.size()) ? 0 : 5);
  }
  close(fds[1]);
  std::string text;
  char chunk[512];
  for (ssize_t n; (n = read(fds[0], chunk, sizeof chunk)) > 0;) text.append(chunk, n);
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  return text;
}

TEST_F(DiskUsageTest, SharesHardLinksAndSkipsWhatItCannotRead) {
  const std::string tree = root() + "/walk", outside = root() + "/outside";
  WriteFile(tree + "/big", std::string(64 << 10, 'x'));
  WriteFile(tree + "/sub/pair", std::string(32 << 10, 'x'));
  fs::create_directories(tree + "/locked");
  fs::create_directories(outside);
  chmod(root().c_str(), 0755);
  if (getuid() == 0) {
    for (const auto& entry : fs::recursive_directory_iterator(root())) {
      ASSERT_EQ(lchown(entry.path().c_str(), kNobody, kNobody), 0);
    }
  }
  // Root's when run as root; without root it is the walker's own, so its
  // removal takes its 64 KiB away.
  WriteFile(tree + "/foreign", std::string(64 << 10, 'x'));
  chmod((tree + "/locked").c_str(), 0);
  setenv("T", tree.c_str(), 1);
  setenv("O", outside.c_str(), 1);

  std::istringstream lines(WalkAfterEachStep(tree));
  std::vector<std::pair<int, long long>> walks;  // (ok, total) per walk
  for (std::pair<int, long long> w; lines >> w.first >> w.second;) walks.push_back(w);
  const size_t steps = sizeof kSteps / sizeof kSteps[0];
  ASSERT_EQ(walks.size(), steps + 2);
  EXPECT_EQ(walks[0].first, 1);
  for (size_t i = 0; i < steps; ++i) {
    EXPECT_EQ(walks[i + 1].first, 1) << kSteps[i].change;
    // Divisions by the link count truncate: one KiB per link.
    const bool own_foreign = getuid() != 0 && i + 1 == steps;
    EXPECT_NEAR(walks[i + 1].second - walks[i].second, own_foreign ? -64 : kSteps[i].delta, 2)
        << kSteps[i].change;
  }
  EXPECT_EQ(walks[steps + 1], walks[steps]);  // the four-output form's own figure
}

TEST_F(DiskUsageTest, MissingPathIsEmptyNotAnError) {
  unsigned long long own = 7, used = 7, total = 7;
  EXPECT_TRUE(MetricGetFileSystemUtilization((root() + "/none").c_str(), own, used, total));
  EXPECT_EQ(own + used + total, 0u);
}

TEST_F(DiskUsageTest, DirectoryRemovedDuringTheWalk) {
  const std::string tree = root() + "/walk";
  WriteFile(tree + "/keep", "x");
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    for (int i = 0; !stop; ++i) {
      const std::string dir = tree + "/churn" + std::to_string(i % 4);
      fs::create_directories(dir + "/a/b");
      WriteFile(dir + "/a/b/f", "data");
      std::error_code ignored;
      fs::remove_all(dir, ignored);
    }
  });
  testing::internal::CaptureStdout();
  int failures = 0;
  for (int i = 0; i < 300; ++i) {
    unsigned long long total = 0;
    if (!getProcessDiskUsage(tree.c_str(), getuid(), total)) ++failures;
  }
  stop = true;
  churn.join();
  // A directory removed while lstat ran may show no links left: the walk
  // names it and goes on.
  const std::string printed = std::regex_replace(
      testing::internal::GetCapturedStdout(),
      std::regex("hard link count of \\[[^\\]]*\\] is >0, file might be deleted or file system"
                 " is corrupted\n"),
      "");
  // An entry gone between readdir and lstat ends the walk with "errno 2";
  // a directory gone before it is opened counts as empty.
  std::string expected;
  for (int i = 0; i < failures; ++i) expected += "errno 2\n";
  EXPECT_EQ(printed, expected);
}

}  // namespace
