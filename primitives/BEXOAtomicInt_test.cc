#include "BEXOAtomicInt.h"

#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <type_traits>
#include <thread>
#include <vector>

#include "temp_root.h"

namespace {

using Atomic32Test = bexo_test::TempRootTest;
using Atomic64Test = bexo_test::TempRootTest;

template <typename Atomic, typename Int>
struct Case {
  const char* name;
  Int initial;
  void (*apply)(Atomic&);
  Int expected;
};

template <typename Atomic, typename Int, size_t N>
void ExpectResults(const Case<Atomic, Int> (&cases)[N]) {
  for (const auto& c : cases) {
    Atomic value(c.initial);
    c.apply(value);
    EXPECT_EQ(static_cast<Int>(value), c.expected) << c.name;
  }
}

TEST_F(Atomic32Test, OperatorsComputeLikeWrappingIntegers) {
  const Case<BEXOAtomicInt32, int32_t> cases[] = {
      {"add wraps", INT32_MAX, [](auto& a) { a += 1; }, INT32_MIN},
      {"sub wraps", INT32_MIN, [](auto& a) { a -= 1; }, INT32_MAX},
      {"xor", 0x0F0F, [](auto& a) { a ^= 0x00FF; }, 0x0FF0},
      {"and", 0x0F0F, [](auto& a) { a &= 0x00FF; }, 0x000F},
      {"or", 0x0F00, [](auto& a) { a |= 0x00F0; }, 0x0FF0},
      {"multiply wraps", 0x10000, [](auto& a) { a *= 0x10001; }, 0x10000},
      {"divide truncates", -7, [](auto& a) { a /= 2; }, -3},
      {"remainder keeps sign", -7, [](auto& a) { a %= 2; }, -1},
      {"shift right by 33 is by 1", -8, [](auto& a) { a >>= 33; }, -4},
      {"shift right by 32 is by 0", -8, [](auto& a) { a >>= 32; }, -8},
      {"shift left into sign", 1, [](auto& a) { a <<= 31; }, INT32_MIN},
      {"shift left by 33 is by 1", 3, [](auto& a) { a <<= 33; }, 6},
      {"shift left by -1 is by 31", 1, [](auto& a) { a <<= -1; }, INT32_MIN},
      {"chained", 2, [](auto& a) { ((a += 3) *= 4) -= 1; }, 19},
  };
  ExpectResults(cases);
}

TEST_F(Atomic32Test, ReturningAddsGiveTheNewValue) {
  BEXOAtomicInt32 value(10);
  EXPECT_EQ(value.fullatomic_add(5), 15);
  EXPECT_EQ(value.dec_ret(), 14);
  EXPECT_EQ(static_cast<int32_t>(value), 14);
}

// One locked instruction on every target (cmpxchg8b on 32-bit x86), also
// where a counter follows a smaller field in a record or in shared memory.
TEST_F(Atomic64Test, LockFreeAndEightByteAligned) {
  struct {
    char tag;
    BEXOAtomicInt64 counter;
  } records[2];
  for (auto& record : records) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&record.counter) % 8, 0u);
    EXPECT_TRUE(__atomic_is_lock_free(sizeof(int64_t), &record.counter));
  }
  EXPECT_TRUE(std::atomic<int64_t>{0}.is_lock_free());
}

TEST_F(Atomic64Test, OperatorsComputeLikeWrappingIntegers) {
  const Case<BEXOAtomicInt64, int64_t> cases[] = {
      {"add carries into the high word", 0xFFFFFFFFLL, [](auto& a) { a += 1; }, 0x100000000LL},
      {"sub borrows from the high word", 0x100000000LL, [](auto& a) { a -= 1; }, 0xFFFFFFFFLL},
      {"add of a negative", 5, [](auto& a) { a += -0x100000005LL; }, -0x100000000LL},
      {"add wraps", INT64_MAX, [](auto& a) { a += 1; }, INT64_MIN},
      {"multiply keeps the low 64 bits", 0x100000001LL,
       [](auto& a) { a *= 0x100000001LL; }, 0x200000001LL},
      {"multiply wraps", INT64_MIN, [](auto& a) { a *= 3; }, INT64_MIN},
      {"divide truncates", -0x300000001LL, [](auto& a) { a /= 2; }, -0x180000000LL},
      {"remainder keeps sign", -0x300000001LL, [](auto& a) { a %= 2; }, -1},
      {"xor across halves", 0x0F0F0F0F0F0F0F0FLL,
       [](auto& a) { a ^= 0x00FF00FF00FF00FFLL; }, 0x0FF00FF00FF00FF0LL},
      {"and across halves", 0x123456789ABCDEF0LL,
       [](auto& a) { a &= 0x7FFFFFFF00000000LL; }, 0x1234567800000000LL},
      {"or across halves", 0x1234567800000000LL,
       [](auto& a) { a |= 0x9ABCDEF0LL; }, 0x123456789ABCDEF0LL},
      {"shift right sign-extends across halves", -0x100000000LL,
       [](auto& a) { a >>= 4; }, -0x10000000LL},
      {"shift right by 64 is by 0", -8, [](auto& a) { a >>= 64; }, -8},
      {"shift right by 65 is by 1", -8, [](auto& a) { a >>= 65; }, -4},
      {"shift count uses the low byte", 0x40, [](auto& a) { a >>= 0x101; }, 0x20},
      {"shift left into the high word", 1, [](auto& a) { a <<= 40; }, 1LL << 40},
      {"shift left of negative", -3, [](auto& a) { a <<= 33; }, -3 * (1LL << 33)},
      {"shift left by 64 is by 0", 7, [](auto& a) { a <<= 64; }, 7},
  };
  ExpectResults(cases);
}

// Runs body(thread index) on kThreads threads released together.
constexpr int kThreads = 4;
constexpr int kRounds = 100000;

void RunTogether(const std::function<void(int)>& body) {
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) std::this_thread::yield();
      body(t);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

template <typename Int>
Int PowerOfThree(int n) {
  std::make_unsigned_t<Int> p = 1;
  for (int i = 0; i < n; ++i) p *= 3;
  return static_cast<Int>(p);
}

// The 64-bit sums cross into the high word early.
TEST_F(Atomic64Test, ConcurrentUpdatesAllLand) {
  BEXOAtomicInt32 sum32, product32(1), bits32, ticket;
  const int64_t start = 0xFFFFFF00LL;
  BEXOAtomicInt64 sum64(start), product64(1), bits64;
  std::vector<std::vector<int32_t>> tickets(kThreads);
  RunTogether([&](int t) {
    const int32_t own32 = 0x01010101 << t;  // thread t alone touches these bits
    const int64_t own64 = 0x0101010101010101LL << t;
    for (int i = 0; i < kRounds; ++i) {
      sum32 += 3;
      sum32 -= 1;
      ++sum32;
      --sum32;
      sum32.fullatomic_add(2);
      sum32.dec_ret();
      product32 *= 3;
      bits32 &= ~own32;
      bits32 |= own32;
      tickets[t].push_back(ticket.inc_ret());
      sum64 += 0x100000001LL;
      sum64 -= 0x100000000LL;
      ++sum64;
      --sum64;
      product64 *= 3;
      bits64 &= ~own64;
      bits64 |= own64;
    }
  });
  const int total = kThreads * kRounds;
  EXPECT_EQ(static_cast<int32_t>(sum32), total * 3);
  EXPECT_EQ(static_cast<int32_t>(product32), PowerOfThree<int32_t>(total));
  EXPECT_EQ(static_cast<int32_t>(bits32), 0x0F0F0F0F);
  EXPECT_EQ(static_cast<int64_t>(sum64), start + total);
  EXPECT_EQ(static_cast<int64_t>(product64), PowerOfThree<int64_t>(total));
  EXPECT_EQ(static_cast<int64_t>(bits64), 0x0F0F0F0F0F0F0F0FLL);
  // Every ticket handed out exactly once.
  std::vector<int32_t> all;
  for (const auto& own : tickets) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  ASSERT_EQ(all.size(), static_cast<size_t>(total));
  for (size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], static_cast<int32_t>(i + 1));
}

// A cas loop written by a caller: no increment is lost.
TEST_F(Atomic64Test, CasLoopsNeverLoseAnUpdate) {
  int32_t volatile narrow = 0;
  int64_t volatile wide = 0xFFFFFFF0LL;
  RunTogether([&](int) {
    for (int i = 0; i < kRounds; ++i) {
      // A wrong first guess just costs one retry: cas reports the real value.
      int32_t seen32 = 0;
      while (!cas(&narrow, &seen32, seen32 + 1)) {
      }
      int64_t seen64 = 0;
      while (!cas(&wide, &seen64, seen64 + 0x100000001LL)) {
      }
    }
  });
  EXPECT_EQ(narrow, kThreads * kRounds);
  EXPECT_EQ(wide, 0xFFFFFFF0LL + 0x100000001LL * kThreads * kRounds);
}

}  // namespace
