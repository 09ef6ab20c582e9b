// Mail queue: spool files byte for byte, lock staleness, request conversions.
#include "mailqueue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <string>
#include <vector>

#include "dir_names.h"
#include "temp_root.h"

namespace {

using bexo_test::FileExists;
using bexo_test::ReadFile;
using bexo_test::WriteFile;

constexpr char kPart[] = "B ------=_NextPart_000-0000-AAAAAAAA-AAAAAAAA\n";

class MailQueueTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = root() + "/q";
    mkdir(dir_.c_str(), 0755);
    req_ = _DMailReq{};
    strcpy(req_.sender, "gw@example.com");
    strcpy(req_.subject, "Disk full");
    req_.recipients = dplist_add(dplist_add(nullptr, "a@example.com"), "b@example.com");
    req_.body = dplist_add(dplist_add(nullptr, "line one"), "");
    req_.r_number = 7;
  }
  void TearDown() override {
    mailqueue_free(&req_);
    TempRootTest::TearDown();
  }

  std::vector<std::string> Files() const { return bexo_test::DirNames(dir_); }

  std::string dir_;
  _DMailReq req_;
};

std::string Header(const std::string& extra = "") {
  return "F gw@example.com\nT a@example.com\nT b@example.com\nD \nS Disk full\n" + extra;
}

std::string MultipartHead() {
  return "M 1\nB MIME-Version: 1.0\nB Content-Type: multipart/mixed;\n"
         "B \tboundary=\"----=_NextPart_000-0000-AAAAAAAA-AAAAAAAA\"\nB \nB \n" +
         std::string(kPart) + "B Content-Type: text/plain;charset=utf-8\nB \nB line one\nB \nB \n";
}

std::string MultipartTail() { return "B \nB ------=_NextPart_000-0000-AAAAAAAA-AAAAAAAA--\nB \nR 7\n"; }

TEST_F(MailQueueTest, SpoolFilesByteForByte) {
  char abc[] = "abc";
  char empty[] = "";
  char big[] = "x";
  char name_a[] = "a.txt";
  char* three[] = {abc, empty, big, abc, nullptr};
  unsigned three_sizes[] = {3, 0, 200000001, 3};
  char* three_names[] = {name_a, name_a, name_a, nullptr};
  char* none[] = {nullptr};
  char* just_abc[] = {abc, nullptr};
  unsigned abc_size[] = {3};
  const struct {
    const char* what;
    char** data;
    unsigned* sizes;
    char** names;
    std::string expected;
  } kCases[] = {
      {"plain", nullptr, nullptr, nullptr, Header("B line one\nB \nR 7\n")},
      {"no entries", none, nullptr, nullptr, Header(MultipartHead() + MultipartTail())},
      {"empty and oversized skipped, names by position", three, three_sizes, three_names,
       Header(MultipartHead() + kPart +
              "B Content-Disposition: attachment; filename=\"a.txt\"\n"
              "B Content-Transfer-Encoding: base64\nB \nB YWJj\nB \n" +
              kPart + "B Content-Transfer-Encoding: base64\nB \nB YWJj\nB \n" + MultipartTail())},
      {"no names array", just_abc, abc_size, nullptr,
       Header(MultipartHead() + kPart + "B Content-Transfer-Encoding: base64\nB \nB YWJj\nB \n" +
              MultipartTail())},
  };
  for (const auto& c : kCases) {
    ASSERT_EQ(mailqueue_put_with_attachments(&req_, &dir_[0], c.data, c.sizes, c.names), 0) << c.what;
    std::vector<std::string> files = Files();
    ASSERT_EQ(files.size(), 1u) << c.what;  // the lock is gone
    EXPECT_EQ(files[0].rfind("KOML", 0), 0u) << files[0];
    EXPECT_NE(files[0].find("-" + std::to_string(getpid())), std::string::npos) << files[0];
    EXPECT_EQ(ReadFile(dir_ + "/" + files[0]), c.expected) << c.what;
    unlink((dir_ + "/" + files[0]).c_str());
  }
}

TEST_F(MailQueueTest, RefusalsWriteNothing) {
  _DMailReq no_recipients = req_;
  no_recipients.recipients = nullptr;
  _DMailReq no_sender = req_;
  no_sender.sender[0] = '\0';
  EXPECT_EQ(mailqueue_put(&no_recipients, &dir_[0]), -1);
  EXPECT_EQ(mailqueue_put(&no_sender, &dir_[0]), -1);
  EXPECT_EQ(mailqueue_put(&req_, nullptr), -1);
  std::string missing = root() + "/none";
  EXPECT_EQ(mailqueue_put(&req_, &missing[0]), -1);
  char* no_files[] = {nullptr};
  EXPECT_EQ(mailqueue_put_with_files(&req_, &dir_[0], nullptr, nullptr), 0);
  EXPECT_EQ(mailqueue_put_with_files(&req_, &dir_[0], no_files, nullptr), 0);
  EXPECT_TRUE(Files().empty());
}

TEST_F(MailQueueTest, DoubleSlashDirectoryAndDistinctNamesWithinOneSecond) {
  std::string slashed = dir_ + "/";
  for (int i = 0; i < 5; ++i) ASSERT_EQ(mailqueue_put(&req_, &slashed[0]), 0);
  EXPECT_EQ(Files().size(), 5u);  // no mail overwrote another
  char path[] = "/q//KOML12-34";
  EXPECT_STREQ(get_fn(path), "KOML12-34");
  char bare[] = "KOML1-2";
  EXPECT_STREQ(get_fn(bare), "KOML1-2");
}

TEST_F(MailQueueTest, FilesAreReadAndNamesPairByPosition) {
  std::string missing = root() + "/missing.bin";
  std::string present = root() + "/x.bin";
  WriteFile(present, std::string("\0\1\2", 3));
  char name_first[] = "first.bin";
  char* files[] = {&missing[0], &present[0], nullptr};
  char* names[] = {name_first, nullptr};
  testing::internal::CaptureStdout();
  ASSERT_EQ(mailqueue_put_with_files(&req_, &dir_[0], files, names), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "stat failed. file: " + missing + "\n");
  std::vector<std::string> spool = Files();
  ASSERT_EQ(spool.size(), 1u);
  EXPECT_EQ(ReadFile(dir_ + "/" + spool[0]),
            Header(MultipartHead() + kPart + "B Content-Disposition: attachment; filename=\"first.bin\"\n" +
                   "B Content-Transfer-Encoding: base64\nB \nB AAEC\nB \n" + MultipartTail()));
}

void SetAge(const std::string& path, time_t seconds) {
  struct timespec times[2];
  times[0].tv_sec = times[1].tv_sec = time(nullptr) - seconds;
  times[0].tv_nsec = times[1].tv_nsec = 0;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST_F(MailQueueTest, LockStalenessDiffersForReaderAndWriter) {
  std::string spool = dir_ + "/KOML1-1";
  std::string lock = dir_ + "/LOCK.KOML1-1";
  mode_t mask = umask(0);
  umask(mask);
  const struct {
    long age;  // -1: no lock
    bool reader;
    int result;
    bool lock_left;
    bool lock_fresh;
  } kCases[] = {
      {-1, true, 0, false, false},       {-1, false, 0, true, true},
      {3600, true, 1, true, false},      {3600, false, -1, true, false},
      {3 * 3600, true, 0, false, false}, {3 * 3600, false, -1, true, false},
      {4 * 86400, false, 0, true, true},
  };
  for (const auto& c : kCases) {
    unlink(lock.c_str());
    if (c.age >= 0) {
      WriteFile(lock, "");
      SetAge(lock, c.age);
    }
    int result = c.reader ? mailqueue_islock(&spool[0]) : mailqueue_lockfile(&spool[0]);
    EXPECT_EQ(result, c.result) << c.age << (c.reader ? " reader" : " writer");
    EXPECT_EQ(FileExists(lock), c.lock_left) << c.age;
    if (c.lock_fresh) {
      struct stat st;
      ASSERT_EQ(stat(lock.c_str(), &st), 0);
      EXPECT_GE(st.st_mtime, time(nullptr) - 5);
      EXPECT_EQ(st.st_mode & 0777, 0644u & ~mask);
    }
  }
  EXPECT_EQ(mailqueue_islock(&lock[0]), 1);  // a lock file is never mail
  EXPECT_EQ(mailqueue_unlockfile(&spool[0]), 0);
  EXPECT_EQ(mailqueue_unlockfile(&spool[0]), -1);
}

TEST_F(MailQueueTest, ConversionsCarryEveryField) {
  MailReq object;
  object.sender = std::string(6000, 's').c_str();
  object.recipients.append("r1");
  object.recipients.append("r2");
  object.subject = "subj";
  object.body.append("b1");
  object.d_text = "dd";
  object.r_number = 3;
  object.extra = 9;
  ASSERT_EQ(mailqueue_conv_rtod(&object, &req_), 0);  // releases the lists set up above
  EXPECT_EQ(strlen(req_.sender), 5119u);
  EXPECT_STREQ(req_.subject, "subj");
  EXPECT_STREQ(req_.d_text, "dd");
  EXPECT_EQ(dplist_get_nelem(req_.recipients), 2);
  EXPECT_STREQ(dplist_get_elem(req_.recipients, 1), "r2");
  EXPECT_EQ(dplist_get_elem(req_.recipients, 2), nullptr);
  EXPECT_EQ(req_.r_number, 3);
  EXPECT_EQ(req_.extra, 0);

  req_.extra = 5;
  MailReq back;
  back.body.append("stale");
  ASSERT_EQ(mailqueue_conv_dtor(&back, &req_), 0);
  EXPECT_EQ(back.sender.length(), 5119);
  EXPECT_EQ(back.recipients.count(), 2);
  EXPECT_STREQ(back.recipients.tail()->value.c_str(), "r2");
  ASSERT_EQ(back.body.count(), 1);
  EXPECT_STREQ(back.body.head()->value.c_str(), "b1");
  EXPECT_STREQ(back.subject.c_str(), "subj");
  EXPECT_STREQ(back.d_text.c_str(), "dd");
  EXPECT_EQ(back.r_number, 3);
  EXPECT_EQ(back.extra, 5);
}

}  // namespace
