#include "url_rule_lock.h"

#include <sched.h>
#include <time.h>

namespace {

// Each thread keeps one slot for its life; threads are spread round robin so
// that readers on different cores write different cache lines.
int MySlot(int slots) {
  static std::atomic<unsigned> next_slot{0};
  thread_local const int slot =
      static_cast<int>(next_slot.fetch_add(1, std::memory_order_relaxed) % slots);
  return slot;
}

constexpr int kSpins = 2000;  // some tens of microseconds

inline void CpuRelax() {
#if defined(__i386__) || defined(__x86_64__)
  __builtin_ia32_pause();
#else
  std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

}  // namespace

void UrlRuleLock::rdlock() {
  std::atomic<int>& readers = slots_[MySlot(kSlots)].readers;
  for (;;) {
    // Count ourselves first, then look for a writer; the writer does the
    // reverse, so one of the two always sees the other (both seq_cst).
    readers.fetch_add(1, std::memory_order_seq_cst);
    if (!writer_.load(std::memory_order_seq_cst)) return;
    readers.fetch_sub(1, std::memory_order_seq_cst);
    // Most writers hold the lock for microseconds (one addition, or the
    // pointer swap that publishes a load): wait for them awake, since a
    // reader put to sleep may take a scheduler tick to run again.
    for (int spin = 0; spin < kSpins && writer_.load(std::memory_order_acquire); ++spin) {
      CpuRelax();
    }
    if (!writer_.load(std::memory_order_seq_cst)) continue;
    std::unique_lock<std::mutex> hold(wait_mutex_);
    writer_done_.wait(hold, [this] { return !writer_.load(std::memory_order_seq_cst); });
  }
}

void UrlRuleLock::rdunlock() {
  slots_[MySlot(kSlots)].readers.fetch_sub(1, std::memory_order_release);
}

void UrlRuleLock::wrlock() {
  writer_mutex_.lock();
  writer_.store(true, std::memory_order_seq_cst);
  for (int round = 0;; ++round) {
    bool drained = true;
    for (const Slot& slot : slots_) {
      if (slot.readers.load(std::memory_order_seq_cst) != 0) {
        drained = false;
        break;
      }
    }
    if (drained) return;
    if (round < 64) {
      sched_yield();
    } else {
      const struct timespec pause = {0, 50 * 1000};
      nanosleep(&pause, nullptr);
    }
  }
}

void UrlRuleLock::wrunlock() {
  {
    std::lock_guard<std::mutex> hold(wait_mutex_);
    writer_.store(false, std::memory_order_seq_cst);
  }
  writer_done_.notify_all();
  writer_mutex_.unlock();
}
