// Core dump packaging with a fake core file, the example PackageCore.sh, the
// compiled "daemon" bundle and the mail queue.
#include "PackageCoreDump.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <list>
#include <string>
#include <vector>

#include "dir_names.h"
#include "forked_children.h"
#include "resource_bundles.h"
#include "temp_root.h"

namespace {

using bexo_test::FileExists;
using bexo_test::ReadFile;
using bexo_test::RunCommand;
using bexo_test::WriteFile;

class CoreDumpTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    product_ = root() + "/usr/bexo";
    cores_ = root() + "/cores";
    dumps_ = root() + "/dumps";
    queue_ = root() + "/mailq";
    for (const auto& d : {product_, cores_, dumps_, queue_}) std::filesystem::create_directories(d);
    std::filesystem::copy_file(std::string(BEXO_SOURCE_DIR) + "/examples/PackageCore.sh", product_ + "/PackageCore.sh");
    bexo_test::InstallResourceBundles(root());
    Configure("true", ",admin,,ops,");
  }

  void Configure(const std::string& send, const std::string& to) {
    WriteFile(product_ + "/morvane.ini",
              "[debug]\ncore_path=" + cores_ + "\ndump_path=" + dumps_ + "\n[notification]\nsend_coredump_mail=" +
                  send + "\nfrom_addr=gw@x\nto_addr=" + to + "\nmail_queue_path=" + queue_ + "\n");
  }

  std::vector<std::string> Queued() const {
    std::vector<std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(queue_)) files.push_back(ReadFile(e.path()));
    return files;
  }

  std::string product_, cores_, dumps_, queue_;
};

TEST_F(CoreDumpTest, ForkedChildPackagesTheCoreAndQueuesALocalizedNotice) {
  WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nlang=ja\n");
  WriteFile(cores_ + "/core_1234", std::string("\x7f" "ELF fake core", 14));
  int pid = -1;
  ASSERT_EQ(fork_package_core_dump((product_ + "/").c_str(), &pid), 0);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(bexo_test::WaitExit(pid), 0);

  std::vector<std::string> packages = bexo_test::DirNames(dumps_);
  ASSERT_EQ(packages.size(), 1u);
  EXPECT_EQ(packages[0].rfind("dump_file_", 0), 0u) << packages[0];
  EXPECT_EQ(packages[0].size(), strlen("dump_file_MMDDYYYYhhmm_0000")) << packages[0];
  std::string package = dumps_ + "/" + packages[0];
  std::string listing;
  EXPECT_EQ(RunCommand("tar -tzf " + package, &listing), 0);
  EXPECT_EQ(listing, "core_1234\n");
  EXPECT_FALSE(FileExists(cores_ + "/core_1234"));

  std::vector<std::string> mails = Queued();
  ASSERT_EQ(mails.size(), 1u);
  EXPECT_EQ(mails[0],
            "F gw@x\nT admin\nT ops\nD \nS コアダンプパッケージが生成されました\n"
            "B ゲートウェイのデーモンが異常終了し、再起動されました。\n"
            "B コアダンプパッケージが生成された可能性があります。Web コンソールの [管理] > [サポート] "
            "画面を確認してください。\nR 0\n");
}

TEST_F(CoreDumpTest, NoCoreFileStartsNothing) {
  WriteFile(cores_ + "/notacore", "x");
  int pid = -1;
  EXPECT_EQ(fork_package_core_dump(product_.c_str(), &pid), 0);
  EXPECT_EQ(pid, 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // no child to reap
  EXPECT_EQ(errno, ECHILD);
  char dir[256];
  snprintf(dir, sizeof dir, "%s", cores_.c_str());
  EXPECT_EQ(check_corefile_existence(dir), -1);
  WriteFile(cores_ + "/bexotrace.1", "x");
  EXPECT_EQ(check_corefile_existence(dir), 0);
  std::string missing = root() + "/no such dir";
  EXPECT_EQ(check_corefile_existence(&missing[0]), -1);
}

TEST_F(CoreDumpTest, PackageNamesWalkTheCounterAndPathsIgnoreATrailingSlash) {
  WriteFile(cores_ + "/core_1", "x");
  CorePackagePlan plain, slashed;
  for (int attempt = 0; attempt < 2; ++attempt) {  // once more if the minute turned meanwhile
    ASSERT_EQ(plan_core_package(product_.c_str(), &plain), 1);
    std::string first = plain.package_name;
    ASSERT_EQ(first.size(), strlen("dump_file_MMDDYYYYhhmm_0000"));
    ASSERT_EQ(first.substr(first.size() - 5), "_0000");
    std::string stem = first.substr(0, first.size() - 4);
    WriteFile(dumps_ + "/" + stem + "0000", "");
    WriteFile(dumps_ + "/" + stem + "0001", "");
    ASSERT_EQ(plan_core_package((product_ + "/").c_str(), &slashed), 1);
    if (std::string(slashed.package_name).compare(0, stem.size(), stem) != 0) continue;
    EXPECT_EQ(std::string(slashed.package_name), stem + "0002");
    break;
  }
  EXPECT_STREQ(plain.ini, slashed.ini);
  EXPECT_STREQ(plain.script, slashed.script);
  EXPECT_EQ(std::string(plain.ini), product_ + "/morvane.ini");
  EXPECT_EQ(std::string(plain.script), product_ + "/PackageCore.sh");
  EXPECT_STREQ(plain.core_path, cores_.c_str());
}

// Without the bundle the notice is the English one; it is queued only for exactly "true".
TEST_F(CoreDumpTest, EnglishNoticeOnlyForExactlyTrue) {
  std::filesystem::remove_all(Path("/etc/kvelo/resource"));
  char subject[kNotificationSubjectSize];
  std::list<std::string> body = {"stale"};
  EXPECT_FALSE(getUTF8Notification("nod_CoreDumpPackageMail", subject, body));
  EXPECT_TRUE(body.empty());
  const struct {
    const char* send;
    size_t mails;
  } kCases[] = {{"true", 1}, {"TRUE", 0}, {"yes", 0}, {"", 0}};
  for (const auto& c : kCases) {
    std::filesystem::remove_all(queue_);
    std::filesystem::create_directories(queue_);
    Configure(c.send, ",admin,,ops,");
    std::string ini = product_ + "/morvane.ini";
    char script[] = "/bin/true";
    EXPECT_EQ(package_core_dump(&ini[0], script, &cores_[0], &dumps_[0], &product_[0], true), 0);
    std::vector<std::string> mails = Queued();
    ASSERT_EQ(mails.size(), c.mails) << c.send;
    if (c.mails == 0) continue;
    EXPECT_EQ(mails[0],
              "F gw@x\nT admin\nT ops\nD \nS Core dump package generated\n"
              "B A core dump package may have been generated - check the Administration->Support page on the web "
              "console.\nR 0\n");
  }
}

// Bodies cut at LF, compiled into a "daemon" bundle with genrb here. ICU
// caches a bundle once opened, so every case has a locale of its own.
TEST_F(CoreDumpTest, BodySplitting) {
  const struct {
    const char* body;  // as written in the bundle source
    std::list<std::string> lines;
  } kCases[] = {
      {"a\\n\\nb\\n", {"a", "", "b"}},
      {"a\\nbc", {"a", "bc"}},
      {"a\\nc", {"a"}},  // a single character after the last LF is dropped
      {"one line", {"one line"}},
  };
  std::string dir = Path("/etc/kvelo/resource/daemon");
  const char* locales[] = {"de", "fr", "it", "ko"};
  int i = 0;
  for (const auto& c : kCases) {
    std::string locale = locales[i++];
    WriteFile(Path("/etc/kvelo/morvane.ini"), "[Common]\nlang=" + locale + "\n");
    WriteFile(root() + "/" + locale + ".txt", locale + " { nod_CoreDumpPackageMail { tok_subject { \"S\" } " +
                                                  "tok_body { \"" + c.body + "\" } } }\n");
    ASSERT_EQ(RunCommand("genrb -q -e UTF-8 -d " + dir + " " + root() + "/" + locale + ".txt", nullptr), 0);
    char subject[kNotificationSubjectSize];
    std::list<std::string> body;
    ASSERT_TRUE(getUTF8Notification("nod_CoreDumpPackageMail", subject, body)) << c.body;
    EXPECT_STREQ(subject, "S");
    EXPECT_EQ(body, c.lines) << c.body;
  }
}

}  // namespace
