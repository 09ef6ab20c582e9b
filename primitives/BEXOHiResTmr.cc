#include "BEXOHiResTmr.h"

#include "BEXONanoTime.h"

BEXOHiResTmr::BEXOHiResTmr(BEXOAtomicInt64& totalTime, BEXOAtomicInt64& count, bool enabled)
    : total_time_(totalTime), count_(count), enabled_(enabled) {
  if (enabled_) start_ = BEXONanoTime();
}

BEXOHiResTmr::~BEXOHiResTmr() {
  if (enabled_) total_time_ += static_cast<int64_t>(BEXONanoTime() - start_);
  ++count_;
}

unsigned long long BEXOHiResTmr::TimeSinceStart() const {
  return enabled_ ? BEXONanoTime() - start_ : 0;
}
