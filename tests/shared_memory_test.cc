// BEXOSharedMemory across handles and real processes, and the atomic
// counters of BEXOAtomicInt.h hammered by forked workers in one segment.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <string>
#include <vector>

#include "BEXOAtomicInt.h"
#include "BEXOSharedMemory.h"
#include "forked_children.h"
#include "primitives/BEXOSharedMemoryImpl.h"
#include "temp_root.h"

namespace {

constexpr char kOpenFailed[] = "BEXOSharedMemory constructor error: shm_open failed";
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

// Failures throw their message and remove the name, also when another handle
// owns the object.
TEST_F(SharedMemoryTest, FailuresThrowTheirMessageAndRemoveTheName) {
  const std::string too_long(300, 'n');
  for (const char* name : {"a/b", "", too_long.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(ThrownBy(name, 4096, true), kOpenFailed) << (name ? name : "null");
  }
  const std::string name = NewName();
  EXPECT_EQ(ThrownBy(name.c_str(), 0, false), kMapFailed);
  EXPECT_EQ(ObjectSize(name), -1);
  BEXOSharedMemory owner(name.c_str(), 4096, false);
  strcpy(static_cast<char*>(owner.getAddr()), "owner");
  EXPECT_EQ(ThrownBy(name.c_str(), 0, false), kMapFailed);
  EXPECT_EQ(ObjectSize(name), -1);
}

// Inspecting neither creates nor resizes.
TEST_F(SharedMemoryTest, CliShowsSizeAndFirstBytesAndRemoves) {
  const std::string name = NewName();
  BEXOSharedMemory memory(name.c_str(), 100, false);
  memcpy(memory.getAddr(), "hello shared world\0\x01\x02", 21);
  const std::string info = "name: /" + name + "\nsize: 100 bytes\nmode: 0600\nfirst 20 bytes:\n"
      "00000000  68 65 6c 6c 6f 20 73 68  61 72 65 64 20 77 6f 72  |hello shared wor|\n"
      "00000010  6c 64 00 01                                       |ld..|\n";
  const struct {
    std::string arguments;
    int status;
    std::string output;
  } cases[] = {
      {"info " + name + " 20", 0, info},
      {"info " + name + "-missing", 1, ""},
      {"info " + name + " 20", 0, info},
      {"info " + name + " lots", 2, ""},
      {"remove " + name, 0, ""},
      {"remove " + name, 1, ""},
  };
  for (const auto& c : cases) {
    std::string out;
    const std::string command = std::string(BEXO_CLI_PATH) + " shm " + c.arguments + " 2>/dev/null";
    EXPECT_EQ(bexo_test::RunCommand(command, &out), c.status) << c.arguments;
    EXPECT_EQ(out, c.output) << c.arguments;
  }
  EXPECT_EQ(ObjectSize(name + "-missing"), -1);
  EXPECT_EQ(ObjectSize(name), -1);
}

// Forked workers race to create one segment by name: exactly one of them
// creates it, and no update of the counters in it is lost.
struct SharedCounters {
  static constexpr int kWorkers = 4;
  static constexpr int kRounds = 20000;
  BEXOAtomicInt32 ticket;
  BEXOAtomicInt32 sum32;
  BEXOAtomicInt64 sum64;
  BEXOAtomicInt64 bits;
  BEXOAtomicInt32 seen[kWorkers * kRounds];  // how often each ticket came out
};

TEST_F(SharedMemoryTest, ForkedWorkersAgreeOnOneSegmentAndLoseNoUpdate) {
  using C = SharedCounters;
  const std::string name = NewName();
  BEXOSharedMemory gate_memory(NewName().c_str(), 4096, true);
  auto* gate = new (gate_memory.getAddr()) BEXOAtomicInt32(0);
  std::vector<pid_t> children;
  for (int w = 0; w < C::kWorkers; ++w) {
    children.push_back(bexo_test::Spawn([&, w] {
      gate->inc_ret();
      while (*gate < C::kWorkers) sched_yield();
      BEXOSharedMemoryImpl mine(name.c_str(), sizeof(C), false);
      C* shared = static_cast<C*>(mine.getAddr());
      const int64_t own = 0x0101010101010101LL << w;
      for (int i = 0; i < C::kRounds; ++i) {
        int32_t t = shared->ticket.inc_ret();
        if (t < 1 || t > C::kWorkers * C::kRounds) return 1;
        ++shared->seen[t - 1];
        shared->sum32 += 2;
        --shared->sum32;
        shared->sum64 += 0x100000001LL;
        shared->bits &= ~own;
        shared->bits |= own;
      }
      return mine.created() ? 10 : 0;
    }));
  }
  int creators = 0;
  for (pid_t child : children) {
    int code = bexo_test::WaitExit(child);
    ASSERT_TRUE(code == 0 || code == 10) << code;
    creators += code == 10;
  }
  EXPECT_EQ(creators, 1);
  BEXOSharedMemory memory(name.c_str(), sizeof(C), true);
  const C* counters = static_cast<C*>(memory.getAddr());
  const int total = C::kWorkers * C::kRounds;
  EXPECT_EQ(counters->ticket, total);
  EXPECT_EQ(counters->sum32, total);
  EXPECT_EQ(static_cast<int64_t>(counters->sum64), 0x100000001LL * total);
  EXPECT_EQ(static_cast<int64_t>(counters->bits), 0x0F0F0F0F0F0F0F0FLL);
  for (int i = 0; i < total; ++i) ASSERT_EQ(counters->seen[i], 1) << "ticket " << i + 1;
}

}  // namespace
