// UrlRuleLock: the reader-writer lock of a URL rule store. Every proxy request
// takes it for reading, so readers must not contend: each thread counts itself
// in one of several cache-line-sized reader slots instead of one shared
// counter, and a writer raises a flag and waits for all slots to drain.
// Writers are preferred: once a writer waits, new readers queue behind it.
// A reader that finds a writer spins for some tens of microseconds (most
// writers only add a rule or swap in a loaded store) and then sleeps on a
// condition variable (a load in place may hold the lock for seconds); a writer
// waiting for readers backs off with yields and short sleeps (lookups hold the
// lock for microseconds).
//
// Thread safety: any thread; not recursive; unlock from the locking thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "bexo_export.h"

class BEXO_EXPORT UrlRuleLock {
 public:
  UrlRuleLock() = default;
  UrlRuleLock(const UrlRuleLock&) = delete;
  UrlRuleLock& operator=(const UrlRuleLock&) = delete;

  void rdlock();
  void rdunlock();
  void wrlock();
  void wrunlock();

 private:
  static constexpr int kSlots = 16;
  struct alignas(64) Slot {
    std::atomic<int> readers{0};
  };

  Slot slots_[kSlots];
  alignas(64) std::atomic<bool> writer_{false};
  std::mutex writer_mutex_;  // one writer at a time
  std::mutex wait_mutex_;    // guards the wake-up of readers
  std::condition_variable writer_done_;
};

class UrlRuleReadGuard {
 public:
  explicit UrlRuleReadGuard(UrlRuleLock& lock) : lock_(lock) { lock_.rdlock(); }
  ~UrlRuleReadGuard() { lock_.rdunlock(); }
  UrlRuleReadGuard(const UrlRuleReadGuard&) = delete;
  UrlRuleReadGuard& operator=(const UrlRuleReadGuard&) = delete;

 private:
  UrlRuleLock& lock_;
};

class UrlRuleWriteGuard {
 public:
  explicit UrlRuleWriteGuard(UrlRuleLock& lock) : lock_(lock) { lock_.wrlock(); }
  ~UrlRuleWriteGuard() { lock_.wrunlock(); }
  UrlRuleWriteGuard(const UrlRuleWriteGuard&) = delete;
  UrlRuleWriteGuard& operator=(const UrlRuleWriteGuard&) = delete;

 private:
  UrlRuleLock& lock_;
};
