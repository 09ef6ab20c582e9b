// The own-disk walk over a real tree: hard links shared out, other owners,
// unreadable and vanishing directories, links not followed.
#include "system/disk_usage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
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

unsigned long long AllocatedKiB(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? static_cast<unsigned long long>(st.st_blocks) / 2 : 0;
}

class DiskUsageTest : public bexo_test::TempRootTest {
 protected:
  std::string Tree() const { return root() + "/walk"; }
};

// One change to the tree and what it must add to the walk's total (KiB).
struct Step {
  const char* what;
  void (*apply)(const std::string& tree, const std::string& outside);
  long long (*delta)(const std::string& tree);
};

const Step kSteps[] = {
    {"file of 96 KiB added",
     [](const std::string& t, const std::string&) { WriteFile(t + "/sub/new", std::string(96 << 10, 'x')); },
     [](const std::string& t) { return static_cast<long long>(AllocatedKiB(t + "/sub/new")); }},
    {"second link inside the tree",
     [](const std::string& t, const std::string&) { link((t + "/sub/new").c_str(), (t + "/new2").c_str()); },
     [](const std::string&) { return 0LL; }},
    {"third link outside: two thirds stay",
     [](const std::string& t, const std::string& o) { link((t + "/sub/new").c_str(), (o + "/new3").c_str()); },
     [](const std::string& t) { return -static_cast<long long>(AllocatedKiB(t + "/sub/new") / 3); }},
    {"file inside the unreadable directory",
     [](const std::string& t, const std::string&) {
       chmod((t + "/locked").c_str(), 0700);
       WriteFile(t + "/locked/inner", std::string(64 << 10, 'x'));
       chmod((t + "/locked").c_str(), 0);
     },
     [](const std::string&) { return 0LL; }},
    {"symbolic link to a large file, not followed",
     [](const std::string& t, const std::string& o) {
       WriteFile(o + "/large", std::string(256 << 10, 'x'));
       symlink((o + "/large").c_str(), (t + "/sym").c_str());
     },
     [](const std::string&) { return 0LL; }},
    {"file of another owner removed",
     [](const std::string& t, const std::string&) { unlink((t + "/foreign").c_str()); },
     [](const std::string&) { return 0LL; }},
};

// Runs the steps in a child that walks as the tree's owner (nobody, when
// the test runs as root, so that the unreadable directory is unreadable).
// Returns "ok total" after the baseline and after each step, then the
// four-output form's own figure.
std::vector<std::string> WalkAfterEachStep(const std::string& tree, const std::string& outside) {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    if (getuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) _exit(3);
    std::ostringstream out;
    const uid_t uid = getuid();
    auto walk = [&] {
      unsigned long long total = 0;
      const bool ok = getProcessDiskUsage(tree.c_str(), uid, total);
      out << ok << " " << total << "\n";
    };
    walk();
    for (const Step& step : kSteps) {
      step.apply(tree, outside);
      walk();
    }
    unsigned long long own = 0, used = 0, total = 0;
    out << MetricGetFileSystemUtilization(tree.c_str(), own, used, total) << " " << own << "\n";
    const std::string text = out.str();
    _exit(write(fds[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 4);
  }
  close(fds[1]);
  std::string text;
  char chunk[512];
  ssize_t n;
  while ((n = read(fds[0], chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(DiskUsageTest, SharesHardLinksAndSkipsWhatItCannotRead) {
  const std::string tree = Tree(), outside = root() + "/outside";
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
  WriteFile(tree + "/foreign", std::string(64 << 10, 'x'));  // owned by root when run as root
  chmod((tree + "/locked").c_str(), 0);

  const std::vector<std::string> lines = WalkAfterEachStep(tree, outside);
  const size_t steps = sizeof kSteps / sizeof kSteps[0];
  ASSERT_EQ(lines.size(), steps + 2);
  long long previous = -1;
  for (size_t i = 0; i <= steps; ++i) {
    ASSERT_EQ(lines[i].substr(0, 2), "1 ") << lines[i];
    const long long total = std::stoll(lines[i].substr(2));
    if (i > 0) {
      const Step& step = kSteps[i - 1];
      // Divisions by the link count truncate: allow one KiB per link.
      EXPECT_NEAR(total - previous, step.delta(tree), 2) << step.what;
    }
    previous = total;
  }
  EXPECT_EQ(lines[steps + 1], "1 " + std::to_string(previous));
}

TEST_F(DiskUsageTest, MissingPathIsEmptyNotAnError) {
  unsigned long long own = 7, used = 7, total = 7;
  EXPECT_TRUE(MetricGetFileSystemUtilization((root() + "/none").c_str(), own, used, total));
  EXPECT_EQ(own + used + total, 0u);
}

TEST_F(DiskUsageTest, DirectoryRemovedDuringTheWalk) {
  const std::string tree = Tree();
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
  const std::string printed = testing::internal::GetCapturedStdout();
  // An entry gone between readdir and lstat ends the walk with "errno 2";
  // a directory gone before it is opened counts as empty.
  std::string expected;
  for (int i = 0; i < failures; ++i) expected += "errno 2\n";
  EXPECT_EQ(printed, expected);
}

}  // namespace
