// MemoryLogBuffer over plain and shared bytes: what reaches the descriptor,
// what a full buffer refuses, and one buffer seen by forked processes.
#include "MemoryLogBuffer.h"

#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "forked_children.h"
#include "temp_root.h"

namespace {

class MemoryLogBufferTest : public bexo_test::TempRootTest {
 protected:
  // Dumps into a fresh file and returns what reached it.
  std::string DumpToFile(MemoryLogBuffer& buffer, int* result = nullptr) {
    std::string path = root() + "/dump" + std::to_string(dumps_++);
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    EXPECT_GE(fd, 0);
    int rc = buffer.dump(fd);
    close(fd);
    if (result) *result = rc;
    return bexo_test::ReadFile(path);
  }

 private:
  int dumps_ = 0;
};

// The first 8 bytes are the header; a line is taken whole or refused.
TEST_F(MemoryLogBufferTest, WritesAreTakenWholeOrRefused) {
  const struct {
    int size;
    std::vector<std::string> lines;
    std::vector<int> accepted;  // write() result per line, as 0/1
    std::string dumped;
  } cases[] = {
      {8 + 6, {"abc\n", "de"}, {1, 1}, "abc\nde"},
      {8 + 6, {"abc\n", "def"}, {1, 0}, "abc\n"},
      {8 + 6, {"abcd\n", "xyz", "z"}, {1, 0, 1}, "abcd\nz"},
      {8, {"", "a"}, {1, 0}, ""},
      {7, {"", "a"}, {1, 0}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.dumped + " in " + std::to_string(c.size));
    std::vector<char> memory(c.size, '#');
    MemoryLogBuffer buffer(memory.data(), c.size);
    for (size_t i = 0; i < c.lines.size(); ++i) {
      EXPECT_EQ(buffer.write(c.lines[i].data(), static_cast<int>(c.lines[i].size())) != 0, c.accepted[i] != 0) << i;
    }
    int result = 0;
    EXPECT_EQ(DumpToFile(buffer, &result), c.dumped);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(DumpToFile(buffer), "");  // a dump empties the buffer
  }
}

TEST_F(MemoryLogBufferTest, RefusesBadArgumentsAndClearEmpties) {
  std::vector<char> memory(64);
  MemoryLogBuffer buffer(memory.data(), 64);
  EXPECT_EQ(buffer.write("abc", -1), 0);
  EXPECT_EQ(buffer.write(nullptr, 3), 0);
  ASSERT_NE(buffer.write("gone", 4), 0);
  buffer.clear();
  ASSERT_NE(buffer.write("kept", 4), 0);
  EXPECT_EQ(DumpToFile(buffer), "kept");
  MemoryLogBuffer none(nullptr, 64);
  EXPECT_EQ(none.capacity(), 0);
  EXPECT_EQ(none.write("a", 1), 0);
  EXPECT_EQ(DumpToFile(none), "");
}

// A failed dump keeps everything; a dump cut short (a full non-blocking pipe)
// keeps exactly the bytes that did not reach the descriptor.
TEST_F(MemoryLogBufferTest, FailedOrShortDumpKeepsTheRestInOrder) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
  int pipe_size = fcntl(fds[1], F_GETPIPE_SZ);
  ASSERT_GT(pipe_size, 0);
  std::string text;
  for (int i = 0; static_cast<int>(text.size()) < pipe_size + 5000; ++i) text += "line " + std::to_string(i) + "\n";
  std::vector<char> memory(8 + text.size());
  MemoryLogBuffer buffer(memory.data(), static_cast<int>(memory.size()));
  ASSERT_NE(buffer.write(text.data(), static_cast<int>(text.size())), 0);
  EXPECT_EQ(buffer.dump(fds[0]), 0);  // the read end: EBADF, nothing written
  EXPECT_EQ(buffer.size(), static_cast<int>(text.size()));
  uint32_t dumps = buffer.dumpCount();
  EXPECT_EQ(buffer.dump(fds[1]), 0);  // the pipe fills up: EAGAIN
  std::string first(pipe_size, '\0');
  ASSERT_EQ(read(fds[0], &first[0], pipe_size), pipe_size);
  close(fds[0]);
  close(fds[1]);
  EXPECT_EQ(buffer.size(), static_cast<int>(text.size()) - pipe_size);
  EXPECT_EQ(first + DumpToFile(buffer), text);
  EXPECT_EQ(buffer.dumpCount(), dumps + 1);
}

TEST_F(MemoryLogBufferTest, CorruptFillLevelIsClamped) {
  std::vector<char> memory(8 + 4, 'z');
  MemoryLogBuffer buffer(memory.data(), 12);
  uint32_t bogus = 0xFFFFFFF0u;
  memcpy(memory.data(), &bogus, sizeof bogus);  // another process scribbled on it
  EXPECT_EQ(buffer.size(), 4);
  EXPECT_EQ(buffer.write("a", 1), 0);
  EXPECT_EQ(DumpToFile(buffer), "zzzz");
}

// Built before fork() over shared bytes, it is one buffer for all: lines
// written by children (one after the other: it has no lock) are dumped by
// the parent.
TEST_F(MemoryLogBufferTest, ForkedProcessesShareOneBuffer) {
  constexpr int kSize = 4096;
  void* shared = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  MemoryLogBuffer buffer(shared, kSize);
  ASSERT_NE(buffer.write("parent\n", 7), 0);
  for (int child = 0; child < 3; ++child) {
    ASSERT_EQ(bexo_test::WaitExit(bexo_test::Spawn([&] {
                std::string line = "child " + std::to_string(child) + "\n";
                return buffer.write(line.data(), static_cast<int>(line.size())) ? 0 : 1;
              })),
              0);
  }
  EXPECT_EQ(DumpToFile(buffer), "parent\nchild 0\nchild 1\nchild 2\n");
  munmap(shared, kSize);
}

}  // namespace
