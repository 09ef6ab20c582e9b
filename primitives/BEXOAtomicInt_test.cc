#include "BEXOAtomicInt.h"

#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "temp_root.h"

namespace {

using Atomic32Test = bexo_test::TempRootTest;
using Atomic64Test = bexo_test::TempRootTest;

struct Case32 {
  const char* name;
  int32_t initial;
  std::function<void(BEXOAtomicInt32&)> apply;
  int32_t expected;
};

TEST_F(Atomic32Test, OperatorsComputeLikeWrappingIntegers) {
  const Case32 cases[] = {
      {"add", 10, [](BEXOAtomicInt32& a) { a += 5; }, 15},
      {"add wraps", INT32_MAX, [](BEXOAtomicInt32& a) { a += 1; }, INT32_MIN},
      {"sub wraps", INT32_MIN, [](BEXOAtomicInt32& a) { a -= 1; }, INT32_MAX},
      {"increment", -1, [](BEXOAtomicInt32& a) { ++a; }, 0},
      {"decrement", 0, [](BEXOAtomicInt32& a) { --a; }, -1},
      {"xor", 0x0F0F, [](BEXOAtomicInt32& a) { a ^= 0x00FF; }, 0x0FF0},
      {"and", 0x0F0F, [](BEXOAtomicInt32& a) { a &= 0x00FF; }, 0x000F},
      {"or", 0x0F00, [](BEXOAtomicInt32& a) { a |= 0x00F0; }, 0x0FF0},
      {"multiply", -7, [](BEXOAtomicInt32& a) { a *= 6; }, -42},
      {"multiply wraps", 0x10000, [](BEXOAtomicInt32& a) { a *= 0x10001; }, 0x10000},
      {"divide truncates", -7, [](BEXOAtomicInt32& a) { a /= 2; }, -3},
      {"remainder keeps sign", -7, [](BEXOAtomicInt32& a) { a %= 2; }, -1},
      {"shift right sign-extends", -8, [](BEXOAtomicInt32& a) { a >>= 1; }, -4},
      {"shift right by 33 is by 1", -8, [](BEXOAtomicInt32& a) { a >>= 33; }, -4},
      {"shift right by 32 is by 0", -8, [](BEXOAtomicInt32& a) { a >>= 32; }, -8},
      {"shift left into sign", 1, [](BEXOAtomicInt32& a) { a <<= 31; }, INT32_MIN},
      {"shift left of negative", -3, [](BEXOAtomicInt32& a) { a <<= 2; }, -12},
      {"shift left by 33 is by 1", 3, [](BEXOAtomicInt32& a) { a <<= 33; }, 6},
      {"shift left by -1 is by 31", 1, [](BEXOAtomicInt32& a) { a <<= -1; }, INT32_MIN},
      {"chained", 2, [](BEXOAtomicInt32& a) { ((a += 3) *= 4) -= 1; }, 19},
  };
  for (const Case32& c : cases) {
    BEXOAtomicInt32 value(c.initial);
    c.apply(value);
    EXPECT_EQ(static_cast<int32_t>(value), c.expected) << c.name;
  }
}

TEST_F(Atomic32Test, ReturningAddsGiveTheNewValue) {
  BEXOAtomicInt32 zero;
  EXPECT_EQ(zero.inc_ret(), 1);
  BEXOAtomicInt32 other;
  EXPECT_EQ(other.dec_ret(), -1);
  BEXOAtomicInt32 ten(10);
  EXPECT_EQ(ten.fullatomic_add(5), 15);
  EXPECT_EQ(static_cast<int32_t>(ten), 15);
  BEXOAtomicInt32 top(INT32_MAX);
  EXPECT_EQ(top.inc_ret(), INT32_MIN);
}

struct Case64 {
  const char* name;
  int64_t initial;
  std::function<void(BEXOAtomicInt64&)> apply;
  int64_t expected;
};

TEST_F(Atomic64Test, OperatorsComputeLikeWrappingIntegers) {
  const Case64 cases[] = {
      {"add carries into the high word", 0xFFFFFFFFLL, [](BEXOAtomicInt64& a) { a += 1; }, 0x100000000LL},
      {"sub borrows from the high word", 0x100000000LL, [](BEXOAtomicInt64& a) { a -= 1; }, 0xFFFFFFFFLL},
      {"add of a negative", 5, [](BEXOAtomicInt64& a) { a += -0x100000005LL; }, -0x100000000LL},
      {"add wraps", INT64_MAX, [](BEXOAtomicInt64& a) { a += 1; }, INT64_MIN},
      {"increment", -1, [](BEXOAtomicInt64& a) { ++a; }, 0},
      {"decrement", 0, [](BEXOAtomicInt64& a) { --a; }, -1},
      {"multiply keeps the low 64 bits", 0x100000001LL,
       [](BEXOAtomicInt64& a) { a *= 0x100000001LL; }, 0x200000001LL},
      {"multiply wraps", INT64_MIN, [](BEXOAtomicInt64& a) { a *= 3; }, INT64_MIN},
      {"divide truncates", -0x300000001LL, [](BEXOAtomicInt64& a) { a /= 2; }, -0x180000000LL},
      {"remainder keeps sign", -0x300000001LL, [](BEXOAtomicInt64& a) { a %= 2; }, -1},
      {"xor across halves", 0x0F0F0F0F0F0F0F0FLL,
       [](BEXOAtomicInt64& a) { a ^= 0x00FF00FF00FF00FFLL; }, 0x0FF00FF00FF00FF0LL},
      {"and across halves", 0x123456789ABCDEF0LL,
       [](BEXOAtomicInt64& a) { a &= 0x7FFFFFFF00000000LL; }, 0x1234567800000000LL},
      {"or across halves", 0x1234567800000000LL, [](BEXOAtomicInt64& a) { a |= 0x9ABCDEF0LL; },
       0x123456789ABCDEF0LL},
      {"shift right sign-extends across halves", -0x100000000LL,
       [](BEXOAtomicInt64& a) { a >>= 4; }, -0x10000000LL},
      {"shift right by 64 is by 0", -8, [](BEXOAtomicInt64& a) { a >>= 64; }, -8},
      {"shift right by 65 is by 1", -8, [](BEXOAtomicInt64& a) { a >>= 65; }, -4},
      {"shift count uses the low byte", 0x40, [](BEXOAtomicInt64& a) { a >>= 0x101; }, 0x20},
      {"shift left into the high word", 1, [](BEXOAtomicInt64& a) { a <<= 40; }, 1LL << 40},
      {"shift left into sign", 1, [](BEXOAtomicInt64& a) { a <<= 63; }, INT64_MIN},
      {"shift left of negative", -3, [](BEXOAtomicInt64& a) { a <<= 33; }, -3 * (1LL << 33)},
      {"shift left by 64 is by 0", 7, [](BEXOAtomicInt64& a) { a <<= 64; }, 7},
  };
  for (const Case64& c : cases) {
    BEXOAtomicInt64 value(c.initial);
    c.apply(value);
    EXPECT_EQ(static_cast<int64_t>(value), c.expected) << c.name;
  }
}

TEST_F(Atomic64Test, PlainStoreAndLoadKeepBothHalves) {
  for (int64_t v : std::vector<int64_t>{INT64_MIN, -1, 0, 0xFFFFFFFF, 0x123456789ABCDEF0, INT64_MAX}) {
    BEXOAtomicInt64 value;
    EXPECT_EQ(static_cast<int64_t>(value), 0);
    value = v;
    EXPECT_EQ(static_cast<int64_t>(value), v);
    BEXOAtomicInt64 copy(value);
    EXPECT_EQ(static_cast<int64_t>(copy), v);
  }
}

TEST_F(Atomic64Test, CasReportsTheValueItSaw) {
  int32_t volatile narrow = 5;
  int32_t expected32 = 5;
  EXPECT_TRUE(cas(&narrow, &expected32, 9));
  EXPECT_EQ(narrow, 9);
  EXPECT_EQ(expected32, 5);
  EXPECT_FALSE(cas(&narrow, &expected32, 1));
  EXPECT_EQ(narrow, 9);
  EXPECT_EQ(expected32, 9);

  int64_t volatile wide = 0x100000005LL;
  int64_t expected64 = 0x200000005LL;  // differs only in the high word
  EXPECT_FALSE(cas(&wide, &expected64, 1));
  EXPECT_EQ(wide, 0x100000005LL);
  EXPECT_EQ(expected64, 0x100000005LL);
  EXPECT_TRUE(cas(&wide, &expected64, -2));
  EXPECT_EQ(wide, -2);
  EXPECT_EQ(expected64, 0x100000005LL);
}

// Division by zero is not guarded: it faults like plain integer division.
TEST_F(Atomic64Test, DivisionByZeroFaults) {
  volatile int32_t zero = 0;
  BEXOAtomicInt32 narrow(1);
  BEXOAtomicInt64 wide(1);
  EXPECT_DEATH(narrow /= zero, "");
  EXPECT_DEATH(narrow %= zero, "");
  EXPECT_DEATH(wide /= zero, "");
  EXPECT_DEATH(wide %= zero, "");
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

int32_t PowerOfThree32(int n) {
  uint32_t p = 1;
  for (int i = 0; i < n; ++i) p *= 3;
  return static_cast<int32_t>(p);
}

int64_t PowerOfThree64(int n) {
  uint64_t p = 1;
  for (int i = 0; i < n; ++i) p *= 3;
  return static_cast<int64_t>(p);
}

TEST_F(Atomic32Test, ConcurrentUpdatesAllLand) {
  BEXOAtomicInt32 sum;
  BEXOAtomicInt32 product(1);
  BEXOAtomicInt32 bits;
  BEXOAtomicInt32 flips;
  BEXOAtomicInt32 ticket;
  std::vector<std::vector<int32_t>> tickets(kThreads);
  RunTogether([&](int t) {
    const int32_t own = 0x01010101 << t;  // thread t alone touches these bits
    for (int i = 0; i < kRounds; ++i) {
      sum += 3;
      sum -= 1;
      ++sum;
      --sum;
      sum.fullatomic_add(2);
      sum.dec_ret();
      product *= 3;
      bits &= ~own;
      bits |= own;
      flips ^= own;
      tickets[t].push_back(ticket.inc_ret());
    }
  });
  EXPECT_EQ(static_cast<int32_t>(sum), kThreads * kRounds * 3);
  EXPECT_EQ(static_cast<int32_t>(product), PowerOfThree32(kThreads * kRounds));
  EXPECT_EQ(static_cast<int32_t>(bits), 0x0F0F0F0F);
  EXPECT_EQ(static_cast<int32_t>(flips), kRounds % 2 ? 0x0F0F0F0F : 0);
  // Every ticket handed out exactly once.
  std::vector<int32_t> all;
  for (const auto& own : tickets) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  ASSERT_EQ(all.size(), static_cast<size_t>(kThreads * kRounds));
  for (size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], static_cast<int32_t>(i + 1));
}

TEST_F(Atomic64Test, ConcurrentUpdatesAllLand) {
  const int64_t start = 0xFFFFFF00LL;  // the sums cross into the high word early
  BEXOAtomicInt64 sum(start);
  BEXOAtomicInt64 product(1);
  BEXOAtomicInt64 bits;
  BEXOAtomicInt64 flips;
  RunTogether([&](int t) {
    const int64_t own = 0x0101010101010101LL << t;
    for (int i = 0; i < kRounds; ++i) {
      sum += 0x100000001LL;
      sum -= 0x100000000LL;
      ++sum;
      --sum;
      product *= 3;
      bits &= ~own;
      bits |= own;
      flips ^= own;
    }
  });
  EXPECT_EQ(static_cast<int64_t>(sum), start + kThreads * kRounds);
  EXPECT_EQ(static_cast<int64_t>(product), PowerOfThree64(kThreads * kRounds));
  EXPECT_EQ(static_cast<int64_t>(bits), 0x0F0F0F0F0F0F0F0FLL);
  EXPECT_EQ(static_cast<int64_t>(flips), kRounds % 2 ? 0x0F0F0F0F0F0F0F0FLL : 0);
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
