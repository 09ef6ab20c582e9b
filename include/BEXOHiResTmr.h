// BEXOHiResTmr: a scoped stopwatch for statistics. On destruction it adds the
// nanoseconds since construction to `totalTime` (when enabled) and one to
// `count` (always), so total / count is the mean time of the measured scope.
//
//   static BEXOAtomicInt64 lookupNanos, lookups;
//   { BEXOHiResTmr timer(lookupNanos, lookups, statsEnabled); Lookup(url); }
//
// Thread safety: a timer belongs to one scope on one thread; any number of
// timers may feed the same statistics concurrently.
#pragma once

#include <stdint.h>

#include "BEXOAtomicInt.h"
#include "bexo_export.h"

class BEXO_EXPORT BEXOHiResTmr {
 public:
  BEXOHiResTmr(BEXOAtomicInt64& totalTime, BEXOAtomicInt64& count, bool enabled);
  BEXOHiResTmr(const BEXOHiResTmr&) = delete;
  BEXOHiResTmr& operator=(const BEXOHiResTmr&) = delete;
  ~BEXOHiResTmr();

  // Nanoseconds since construction; 0 when not enabled.
  unsigned long long TimeSinceStart() const;

 private:
  BEXOAtomicInt64& total_time_;
  BEXOAtomicInt64& count_;
  uint64_t start_ = 0;
  bool enabled_;
};
