// BEXOSharedMemory across handles and real processes, and the atomic
// counters of BEXOAtomicInt.h hammered by forked workers in one segment.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "BEXOAtomicInt.h"
#include "BEXOSharedMemory.h"
#include "primitives/BEXOSharedMemoryImpl.h"
#include "temp_root.h"

namespace {

constexpr char kOpenFailed[] = "BEXOSharedMemory constructor error: shm_open failed";
constexpr char kTruncateFailed[] = "BEXOSharedMemory constructor error: ftruncate failed";
constexpr char kMapFailed[] = "BEXOSharedMemory constructor error: mmap failed";

// Shared-memory names are system-wide: each test makes its own from the pid
// and removes them afterwards, so parallel and repeated runs never collide.
class SharedMemoryTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    for (const std::string& name : names_) shm_unlink(("/" + name).c_str());
    TempRootTest::TearDown();
  }

  std::string NewName() {
    names_.push_back("bexo-test-" + std::to_string(getpid()) + "-" + std::to_string(names_.size()));
    return names_.back();
  }

  // The object's size, or -1 when the name does not exist.
  static off_t ObjectSize(const std::string& name) {
    int fd = shm_open(("/" + name).c_str(), O_RDONLY, 0);
    if (fd == -1) return -1;
    struct stat st;
    off_t size = fstat(fd, &st) == 0 ? st.st_size : -1;
    close(fd);
    return size;
  }

  // The message a construction threw, or "" when it succeeded.
  static std::string ThrownBy(const char* name, unsigned int size, bool unlink) {
    try {
      BEXOSharedMemory memory(name, size, unlink);
    } catch (const char* message) {
      return message;
    }
    return "";
  }

 private:
  std::vector<std::string> names_;
};

// Forks a child that runs `body` and exits with its result (99 on an
// exception); returns the child's pid.
pid_t Spawn(const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    int code = 99;
    try {
      code = body();
    } catch (...) {
    }
    _exit(code);
  }
  return pid;
}

// Waits for the child and returns its exit code, -1 when it did not exit.
int Reap(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(SharedMemoryTest, AnotherProcessSeesAndChangesTheBytes) {
  const std::string name = NewName();
  BEXOSharedMemory mine(name.c_str(), 8192, true);
  char* bytes = static_cast<char*>(mine.getAddr());
  strcpy(bytes, "question");
  pid_t child = Spawn([&] {
    BEXOSharedMemoryImpl theirs(name.c_str(), 8192, false);
    char* seen = static_cast<char*>(theirs.getAddr());
    if (theirs.created() || strcmp(seen, "question") != 0) return 1;
    strcpy(seen + 4096, "answer");
    return 0;
  });
  ASSERT_EQ(Reap(child), 0);
  EXPECT_STREQ(bytes + 4096, "answer");
}

// Removing the name on destruction leaves a fresh, zero-filled object for the
// next handle; keeping it leaves the bytes to the next one.
TEST_F(SharedMemoryTest, UnlinkOnDestroyDecidesWhatTheNextHandleSees) {
  for (bool unlink : {true, false}) {
    const std::string name = NewName();
    {
      BEXOSharedMemory memory(name.c_str(), 4096, unlink);
      memset(memory.getAddr(), 0xAB, 4096);
    }
    EXPECT_EQ(ObjectSize(name), unlink ? -1 : 4096);
    BEXOSharedMemoryImpl next(name.c_str(), 4096, true);
    EXPECT_EQ(next.created(), unlink);
    const unsigned char* bytes = static_cast<unsigned char*>(next.getAddr());
    for (int i = 0; i < 4096; ++i) ASSERT_EQ(bytes[i], unlink ? 0 : 0xAB) << "byte " << i;
  }
}

TEST_F(SharedMemoryTest, AttachingWithAnotherSizeResizesForEverybody) {
  const std::string name = NewName();
  BEXOSharedMemory small(name.c_str(), 4096, false);
  strcpy(static_cast<char*>(small.getAddr()), "kept");
  BEXOSharedMemory large(name.c_str(), 3 * 4096, false);
  EXPECT_EQ(ObjectSize(name), 3 * 4096);
  EXPECT_STREQ(static_cast<char*>(large.getAddr()), "kept");
  static_cast<char*>(large.getAddr())[3 * 4096 - 1] = 'x';
}

TEST_F(SharedMemoryTest, ZeroSizeThrowsTheMapMessageAndRemovesTheName) {
  const std::string name = NewName();
  EXPECT_EQ(ThrownBy(name.c_str(), 0, false), kMapFailed);
  EXPECT_EQ(ObjectSize(name), -1);

  // Also when the object belonged to another handle, which keeps its mapping.
  BEXOSharedMemory owner(name.c_str(), 4096, false);
  strcpy(static_cast<char*>(owner.getAddr()), "owner");
  EXPECT_EQ(ThrownBy(name.c_str(), 0, false), kMapFailed);
  EXPECT_EQ(ObjectSize(name), -1);
}

TEST_F(SharedMemoryTest, UnusableNamesThrowTheOpenMessage) {
  const std::string too_long(300, 'n');
  for (const char* name : {"a/b", "", too_long.c_str()}) {
    EXPECT_EQ(ThrownBy(name, 4096, true), kOpenFailed) << "'" << name << "'";
  }
  EXPECT_EQ(ThrownBy(nullptr, 4096, true), kOpenFailed);
}

// A size over the process's file size limit fails in ftruncate; the name is
// removed although another process created the object.
TEST_F(SharedMemoryTest, TruncateFailureThrowsAndRemovesTheName) {
  const std::string name = NewName();
  BEXOSharedMemory owner(name.c_str(), 4096, false);
  pid_t child = Spawn([&] {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {8192, 8192};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    return ThrownBy(name.c_str(), 1 << 20, false) == kTruncateFailed ? 0 : 1;
  });
  ASSERT_EQ(Reap(child), 0);
  EXPECT_EQ(ObjectSize(name), -1);
  EXPECT_NE(owner.getAddr(), nullptr);
}

// Processes racing to create one name: exactly one of them creates it.
TEST_F(SharedMemoryTest, RacingCreatorsAgreeOnOneObject) {
  constexpr int kWorkers = 6;
  const std::string name = NewName();
  BEXOSharedMemory gate_memory(NewName().c_str(), 4096, true);
  auto* gate = new (gate_memory.getAddr()) BEXOAtomicInt32(0);
  std::vector<pid_t> children;
  for (int i = 0; i < kWorkers; ++i) {
    children.push_back(Spawn([&] {
      gate->inc_ret();
      while (*gate < kWorkers) sched_yield();
      BEXOSharedMemoryImpl memory(name.c_str(), 4096, false);
      static_cast<BEXOAtomicInt32*>(memory.getAddr())->inc_ret();
      return memory.created() ? 10 : 0;
    }));
  }
  int creators = 0;
  for (pid_t child : children) {
    int code = Reap(child);
    ASSERT_TRUE(code == 0 || code == 10) << code;
    creators += code == 10;
  }
  EXPECT_EQ(creators, 1);
  BEXOSharedMemoryImpl result(name.c_str(), 4096, false);
  EXPECT_EQ(*static_cast<BEXOAtomicInt32*>(result.getAddr()), kWorkers);
}

TEST_F(SharedMemoryTest, CliShowsSizeAndFirstBytesAndRemoves) {
  const std::string name = NewName();
  BEXOSharedMemory memory(name.c_str(), 100, false);
  memcpy(memory.getAddr(), "hello shared world\0\x01\x02", 21);
  const std::string bexo = BEXO_CLI_PATH;
  std::string out;
  ASSERT_EQ(bexo_test::RunCommand(bexo + " shm info " + name + " 20", &out), 0);
  EXPECT_EQ(out, "name: /" + name + "\nsize: 100 bytes\nmode: 0600\nfirst 20 bytes:\n"
                 "00000000  68 65 6c 6c 6f 20 73 68  61 72 65 64 20 77 6f 72  |hello shared wor|\n"
                 "00000010  6c 64 00 01                                       |ld..|\n");
  // Inspecting neither creates nor resizes.
  EXPECT_EQ(bexo_test::RunCommand(bexo + " shm info " + name + "-missing 2>/dev/null", &out), 1);
  EXPECT_EQ(ObjectSize(name + "-missing"), -1);
  EXPECT_EQ(ObjectSize(name), 100);

  EXPECT_EQ(bexo_test::RunCommand(bexo + " shm info " + name + " lots 2>/dev/null", &out), 2);
  ASSERT_EQ(bexo_test::RunCommand(bexo + " shm remove " + name, &out), 0);
  EXPECT_EQ(ObjectSize(name), -1);
  EXPECT_EQ(bexo_test::RunCommand(bexo + " shm remove " + name + " 2>/dev/null", &out), 1);
}

// Counters in a segment that forked workers attach to by name.
struct SharedCounters {
  static constexpr int kWorkers = 4;
  static constexpr int kRounds = 20000;

  BEXOAtomicInt32 ready;
  BEXOAtomicInt32 ticket;
  BEXOAtomicInt32 sum32;
  BEXOAtomicInt64 sum64;
  BEXOAtomicInt64 product;
  BEXOAtomicInt64 bits;
  BEXOAtomicInt32 seen[kWorkers * kRounds];  // how often each ticket came out
};

TEST_F(SharedMemoryTest, ForkedWorkersUpdateSharedCountersWithoutLoss) {
  using C = SharedCounters;
  const std::string name = NewName();
  BEXOSharedMemory memory(name.c_str(), sizeof(C), true);
  C* counters = new (memory.getAddr()) C;
  counters->product = 1;
  counters->sum64 = 0xFFFFF000LL;

  std::vector<pid_t> children;
  for (int w = 0; w < C::kWorkers; ++w) {
    children.push_back(Spawn([&, w] {
      BEXOSharedMemory mine(name.c_str(), sizeof(C), false);
      C* shared = static_cast<C*>(mine.getAddr());
      shared->ready.inc_ret();
      while (shared->ready < C::kWorkers) sched_yield();
      const int64_t own = 0x0101010101010101LL << w;
      for (int i = 0; i < C::kRounds; ++i) {
        int32_t t = shared->ticket.inc_ret();
        if (t < 1 || t > C::kWorkers * C::kRounds) return 1;
        ++shared->seen[t - 1];
        shared->sum32 += 2;
        --shared->sum32;
        shared->sum64 += 0x100000001LL;
        shared->product *= 3;
        shared->bits &= ~own;
        shared->bits |= own;
      }
      return 0;
    }));
  }
  for (pid_t child : children) ASSERT_EQ(Reap(child), 0);

  const int total = C::kWorkers * C::kRounds;
  EXPECT_EQ(counters->ticket, total);
  EXPECT_EQ(counters->sum32, total);
  EXPECT_EQ(static_cast<int64_t>(counters->sum64), 0xFFFFF000LL + 0x100000001LL * total);
  uint64_t power = 1;
  for (int i = 0; i < total; ++i) power *= 3;
  EXPECT_EQ(static_cast<int64_t>(counters->product), static_cast<int64_t>(power));
  EXPECT_EQ(static_cast<int64_t>(counters->bits), 0x0F0F0F0F0F0F0F0FLL);
  for (int i = 0; i < total; ++i) ASSERT_EQ(counters->seen[i], 1) << "ticket " << i + 1;
}

}  // namespace
