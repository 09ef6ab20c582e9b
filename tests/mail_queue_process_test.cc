// Mail queue as its reader sees it: the multipart B lines parse as a MIME
// message with Python's email package, and a reader running beside forked
// writers never takes a half-written spool file.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "mailqueue.h"
#include "python_runner.h"
#include "dir_names.h"
#include "forked_children.h"
#include "temp_root.h"

namespace {

using bexo_test::ReadFile;

class MailQueueProcessTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    dir_ = root() + "/mailq";
    mkdir(dir_.c_str(), 0755);
  }

  std::vector<std::string> Spooled() const { return bexo_test::DirNames(dir_); }

  std::string dir_;
};

void FillRequest(_DMailReq* req, const std::string& subject, int body_lines) {
  *req = _DMailReq{};
  strcpy(req->sender, "gateway@example.com");
  snprintf(req->subject, sizeof req->subject, "%s", subject.c_str());
  req->recipients = dplist_add(nullptr, "admin@example.com");
  for (int i = 0; i < body_lines; ++i) req->body = dplist_add(req->body, ("body line " + std::to_string(i)).c_str());
  req->r_number = body_lines;
}

TEST_F(MailQueueProcessTest, AttachmentsDecodeToTheOriginalBytesWithPythonEmail) {
  const size_t kSizes[] = {1, 2, 3, 57, 58, 1000, 65537, 3 * 1024 * 1024 + 7};
  std::mt19937 random(7);
  std::vector<std::string> contents;
  std::vector<std::string> names;
  for (size_t size : kSizes) {
    std::string data(size, '\0');
    for (char& c : data) c = static_cast<char>(random() & 0xff);
    contents.push_back(data);
    names.push_back("part" + std::to_string(size) + ".bin");
  }
  std::vector<char*> data_ptrs, name_ptrs;
  std::vector<unsigned> sizes;
  for (size_t i = 0; i < contents.size(); ++i) {
    data_ptrs.push_back(&contents[i][0]);
    name_ptrs.push_back(&names[i][0]);
    sizes.push_back(static_cast<unsigned>(contents[i].size()));
  }
  data_ptrs.push_back(nullptr);
  _DMailReq req;
  FillRequest(&req, "attachments", 2);
  ASSERT_EQ(mailqueue_put_with_attachments(&req, &dir_[0], data_ptrs.data(), sizes.data(), name_ptrs.data()), 0);
  mailqueue_free(&req);

  std::vector<std::string> spooled = Spooled();
  ASSERT_EQ(spooled.size(), 1u);
  std::istringstream lines(ReadFile(dir_ + "/" + spooled[0]));
  std::string line, message;
  while (std::getline(lines, line)) {
    if (line.rfind("B ", 0) == 0) message += line.substr(2) + "\n";
  }
  std::string out_dir = root() + "/decoded";
  mkdir(out_dir.c_str(), 0755);
  std::string python;
  ASSERT_EQ(bexo_test::RunPython(root(), R"(
import email, email.policy, sys
msg = email.message_from_bytes(sys.stdin.buffer.read(), policy=email.policy.default)
print(msg.get_content_type(), len(msg.defects))
for part in msg.iter_parts():
    name = part.get_filename()
    if name is None:
        print("text", repr(part.get_content()))
    else:
        open(")" + out_dir + R"(/" + name, "wb").write(part.get_payload(decode=True))
        print("file", name, len(part.defects))
)",
                                 message, &python),
            0);
  std::string expected = "multipart/mixed 0\ntext 'body line 0\\nbody line 1\\n'\n";
  for (const auto& name : names) expected += "file " + name + " 0\n";
  EXPECT_EQ(python, expected);
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_TRUE(ReadFile(out_dir + "/" + names[i]) == contents[i]) << names[i];
  }
}

// Writers in forked processes spool mails with large bodies while this
// process reads the queue as the mail sender does: skip what is locked, take
// the rest. Every mail must arrive once and whole.
TEST_F(MailQueueProcessTest, ReaderNeverSeesAHalfWrittenFile) {
  constexpr int kWriters = 4;
  constexpr int kMailsEach = 40;
  constexpr int kBodyLines = 3000;
  bexo_test::SpawnWorkers(kWriters, 1, [&](int w, int) {
    bool ok = true;
    for (int m = 0; m < kMailsEach; ++m) {
      _DMailReq req;
      FillRequest(&req, "w" + std::to_string(w) + "m" + std::to_string(m), kBodyLines);
      ok &= mailqueue_put(&req, &dir_[0]) == 0;
      mailqueue_free(&req);
    }
    return ok;
  });
  std::string expected_tail = "R " + std::to_string(kBodyLines) + "\n";
  std::map<std::string, int> received;
  int torn = 0;
  auto drain = [&] {
    for (const std::string& name : Spooled()) {
      std::string path = dir_ + "/" + name;
      if (mailqueue_islock(&path[0]) != 0) continue;
      std::string content = ReadFile(path);
      size_t subject = content.find("\nS ");
      bool whole = content.size() > expected_tail.size() &&
                   content.compare(content.size() - expected_tail.size(), expected_tail.size(), expected_tail) == 0 &&
                   subject != std::string::npos;
      if (!whole) {
        ++torn;
      } else {
        ++received[content.substr(subject + 3, content.find('\n', subject + 3) - subject - 3)];
      }
      unlink(path.c_str());
    }
  };
  int running = kWriters;
  while (running > 0) {
    drain();
    int status;
    pid_t done = waitpid(-1, &status, WNOHANG);
    if (done > 0) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer failed to spool";
      --running;
    }
  }
  drain();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(received.size(), static_cast<size_t>(kWriters * kMailsEach));
  for (const auto& entry : received) EXPECT_EQ(entry.second, 1) << entry.first;
  EXPECT_TRUE(Spooled().empty());
}

}  // namespace
