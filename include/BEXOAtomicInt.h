// Lock-free integer counters for statistics that several threads, or several
// processes mapping the same memory, update without a lock.
//
// BEXOAtomicInt32 and BEXOAtomicInt64 hold one integer and nothing else, so
// they may be placed in shared memory. Every compound operator is an atomic
// read-modify-write: a single locked instruction where the processor has one,
// otherwise a compare-and-swap loop that retries until its update lands.
// Arithmetic wraps in two's complement; shift counts are taken modulo the
// width; division and remainder by zero fault exactly as plain integer
// division does.
//
// Thread safety: every compound operator, ++/--, fullatomic_add, inc_ret and
// dec_ret may race freely with each other. Plain loads and stores (the
// conversion operators, assignment from an integer, the constructors) carry no
// fence. The 64-bit ones are split into two 32-bit halves and can tear
// against a concurrent writer; that matches the 32-bit target the counters
// were made for. Where a reader needs a consistent 64-bit value, keep a plain
// int64_t and read it with a compare-and-swap: cas(&word, &seen, 0) with
// seen == 0 leaves the current value in `seen` and never changes `word`.
#pragma once

#include <stdint.h>

// One locked compare-and-exchange. On success *target becomes `desired`. In
// every case *expected afterwards holds the value *target had just before the
// instruction, so after a failure it holds the value that won. Returns true
// when the exchange happened.
inline bool cas(int32_t volatile* target, int32_t* expected, int32_t desired) {
  return __atomic_compare_exchange_n(target, expected, desired, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_SEQ_CST);
}

// The same with the 8-byte compare-and-exchange; *expected receives both
// halves of the observed value.
inline bool cas(int64_t volatile* target, int64_t* expected, int64_t desired) {
  return __atomic_compare_exchange_n(target, expected, desired, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_SEQ_CST);
}

class BEXOAtomicInt32 {
 public:
  BEXOAtomicInt32() { operator=(0); }
  BEXOAtomicInt32(int32_t v) { operator=(v); }  // NOLINT: converts like the integer it wraps
  // Copies are plain loads and stores, like assigning the integer.
  BEXOAtomicInt32(const BEXOAtomicInt32& other) { operator=(static_cast<int32_t>(other)); }
  BEXOAtomicInt32& operator=(const BEXOAtomicInt32& other) {
    return operator=(static_cast<int32_t>(other));
  }

  // Plain 32-bit store: no lock, no fence.
  BEXOAtomicInt32& operator=(int32_t v) {
    __atomic_store_n(&value_, v, __ATOMIC_RELAXED);
    return *this;
  }
  // Plain 32-bit load.
  operator int32_t() const { return __atomic_load_n(&value_, __ATOMIC_RELAXED); }

  // Single locked instructions: the fetched value is unused, so the compiler
  // emits lock add/sub/xor/and/or on memory.
  BEXOAtomicInt32& operator+=(int32_t v) {
    __atomic_fetch_add(&value_, v, __ATOMIC_SEQ_CST);
    return *this;
  }
  BEXOAtomicInt32& operator-=(int32_t v) {
    __atomic_fetch_sub(&value_, v, __ATOMIC_SEQ_CST);
    return *this;
  }
  BEXOAtomicInt32& operator^=(int32_t v) {
    __atomic_fetch_xor(&value_, v, __ATOMIC_SEQ_CST);
    return *this;
  }
  BEXOAtomicInt32& operator&=(int32_t v) {
    __atomic_fetch_and(&value_, v, __ATOMIC_SEQ_CST);
    return *this;
  }
  BEXOAtomicInt32& operator|=(int32_t v) {
    __atomic_fetch_or(&value_, v, __ATOMIC_SEQ_CST);
    return *this;
  }
  BEXOAtomicInt32& operator++() { return operator+=(1); }
  BEXOAtomicInt32& operator--() { return operator-=(1); }

  // Compare-and-swap loops.
  BEXOAtomicInt32& operator*=(int32_t v) {
    return Update([v](uint32_t old) { return old * static_cast<uint32_t>(v); });
  }
  BEXOAtomicInt32& operator/=(int32_t v) {
    return Update([v](uint32_t old) { return static_cast<uint32_t>(static_cast<int32_t>(old) / v); });
  }
  BEXOAtomicInt32& operator%=(int32_t v) {
    return Update([v](uint32_t old) { return static_cast<uint32_t>(static_cast<int32_t>(old) % v); });
  }
  // Arithmetic (sign-extending) shift.
  BEXOAtomicInt32& operator>>=(int32_t n) {
    return Update([n](uint32_t old) { return static_cast<uint32_t>(static_cast<int32_t>(old) >> (n & 31)); });
  }
  BEXOAtomicInt32& operator<<=(int32_t n) {
    return Update([n](uint32_t old) { return old << (n & 31); });
  }

  // One locked exchange-and-add; returns the new value (old value + d).
  int32_t fullatomic_add(int d) { return __atomic_add_fetch(&value_, d, __ATOMIC_SEQ_CST); }
  int32_t inc_ret() { return fullatomic_add(1); }
  int32_t dec_ret() { return fullatomic_add(-1); }

 private:
  // Read once, then retry with the value the failed cas reports. Computing in
  // uint32_t makes wrapping and left shifts of negative values well defined.
  template <typename Compute>
  BEXOAtomicInt32& Update(Compute compute) {
    int32_t expected = *this;
    while (!cas(&value_, &expected, static_cast<int32_t>(compute(static_cast<uint32_t>(expected))))) {
    }
    return *this;
  }

  int32_t value_;
};

class BEXOAtomicInt64 {
 public:
  BEXOAtomicInt64() { operator=(0); }
  BEXOAtomicInt64(int64_t v) { operator=(v); }  // NOLINT: converts like the integer it wraps
  BEXOAtomicInt64(const BEXOAtomicInt64& other) { operator=(static_cast<int64_t>(other)); }
  BEXOAtomicInt64& operator=(const BEXOAtomicInt64& other) {
    return operator=(static_cast<int64_t>(other));
  }

  // Two plain 32-bit stores, low word first: not atomic as a whole.
  BEXOAtomicInt64& operator=(int64_t v) {
    uint64_t bits = static_cast<uint64_t>(v);
    __atomic_store_n(&Word(kLow), static_cast<uint32_t>(bits), __ATOMIC_RELAXED);
    __atomic_store_n(&Word(kHigh), static_cast<uint32_t>(bits >> 32), __ATOMIC_RELAXED);
    return *this;
  }
  // Two plain 32-bit loads, high word first: a concurrent update can be seen torn.
  operator int64_t() const {
    uint64_t high = __atomic_load_n(&Word(kHigh), __ATOMIC_RELAXED);
    uint64_t low = __atomic_load_n(&Word(kLow), __ATOMIC_RELAXED);
    return static_cast<int64_t>(high << 32 | low);
  }

  // Compare-exchange loops written in place; a torn first read only costs a retry.
  BEXOAtomicInt64& operator+=(int64_t v) {
    int64_t seen = *this;
    while (!__atomic_compare_exchange_n(&value_, &seen,
                                        static_cast<int64_t>(static_cast<uint64_t>(seen) + static_cast<uint64_t>(v)),
                                        false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
    }
    return *this;
  }
  BEXOAtomicInt64& operator-=(int64_t v) {
    int64_t seen = *this;
    while (!__atomic_compare_exchange_n(&value_, &seen,
                                        static_cast<int64_t>(static_cast<uint64_t>(seen) - static_cast<uint64_t>(v)),
                                        false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
    }
    return *this;
  }
  BEXOAtomicInt64& operator++() { return operator+=(1); }
  BEXOAtomicInt64& operator--() { return operator-=(1); }

  // Loops over cas(int64_t volatile*, ...).
  BEXOAtomicInt64& operator*=(int64_t v) {
    return Update([v](uint64_t old) { return old * static_cast<uint64_t>(v); });
  }
  BEXOAtomicInt64& operator/=(int64_t v) {
    return Update([v](uint64_t old) { return static_cast<uint64_t>(static_cast<int64_t>(old) / v); });
  }
  BEXOAtomicInt64& operator%=(int64_t v) {
    return Update([v](uint64_t old) { return static_cast<uint64_t>(static_cast<int64_t>(old) % v); });
  }
  BEXOAtomicInt64& operator^=(int64_t v) {
    return Update([v](uint64_t old) { return old ^ static_cast<uint64_t>(v); });
  }
  BEXOAtomicInt64& operator&=(int64_t v) {
    return Update([v](uint64_t old) { return old & static_cast<uint64_t>(v); });
  }
  BEXOAtomicInt64& operator|=(int64_t v) {
    return Update([v](uint64_t old) { return old | static_cast<uint64_t>(v); });
  }
  // The count is the low byte of n modulo 64, which is n & 63.
  BEXOAtomicInt64& operator>>=(int64_t n) {
    return Update([n](uint64_t old) { return static_cast<uint64_t>(static_cast<int64_t>(old) >> (n & 63)); });
  }
  BEXOAtomicInt64& operator<<=(int64_t n) {
    return Update([n](uint64_t old) { return old << (n & 63); });
  }

 private:
  // The halves alias the 64-bit value; may_alias keeps that well defined.
  typedef uint32_t __attribute__((may_alias)) Half;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  static constexpr int kLow = 0, kHigh = 1;
#else
  static constexpr int kLow = 1, kHigh = 0;
#endif

  Half& Word(int index) { return reinterpret_cast<Half*>(&value_)[index]; }
  const Half& Word(int index) const { return reinterpret_cast<const Half*>(&value_)[index]; }

  template <typename Compute>
  BEXOAtomicInt64& Update(Compute compute) {
    int64_t expected = *this;
    while (!cas(&value_, &expected, static_cast<int64_t>(compute(static_cast<uint64_t>(expected))))) {
    }
    return *this;
  }

  // 8-byte aligned also on 32-bit x86, where the compare-exchange must not
  // straddle a cache line.
  alignas(8) int64_t value_;
};

static_assert(sizeof(BEXOAtomicInt32) == 4, "one 32-bit integer, nothing else");
static_assert(sizeof(BEXOAtomicInt64) == 8, "one 64-bit integer, nothing else");
static_assert(__atomic_always_lock_free(sizeof(int64_t), 0),
              "BEXOAtomicInt64 needs an 8-byte compare-and-swap: on 32-bit x86, build for i686 or newer");
