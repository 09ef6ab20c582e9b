// A periodic element of the timer queue, and the order the queue keeps its
// elements in.
//
// Thread safety: none; elements belong to the thread that runs their queue.
#pragma once

#include <stdint.h>

#include "BEXOTimerQueue.h"

class BEXOTimerQueueElementImpl : public BEXOTimerQueueElement {
 public:
  // The position in the queue: due time, then order.
  struct Slot {
    int32_t next_time;
    int32_t order;
  };

  BEXOTimerQueueElementImpl(int start, int period, void (*callback)(void*), void* argument,
                            int order)
      : start_(start), period_(period), order_(order), callback_(callback), argument_(argument) {}

  // Sets the next time to the first point of the rhythm strictly after `now`.
  // Signed, truncating division: when `now` lies before start the first point
  // is start + period, not start. A period of 0 faults in the division.
  void Arm(int now) {
    // In 64 bits so that far-off starts wrap instead of overflowing.
    int64_t elapsed = static_cast<int64_t>(now) - start_;
    next_time_ = static_cast<int32_t>(start_ + period_ * (elapsed / period_ + 1));
  }
  void Call() const { callback_(argument_); }

  int32_t next_time() const { return next_time_; }
  Slot slot() const { return {next_time_, order_}; }

 private:
  int32_t next_time_ = 0;
  int32_t start_;
  int32_t period_;
  int32_t order_;
  void (*callback_)(void*);
  void* argument_;
};

// Earlier next time first; at equal times the smaller order first. Lookups
// may also go by slot, without touching an element.
struct BEXOTimerQueueElementImplSortCriterion {
  using is_transparent = void;
  using Slot = BEXOTimerQueueElementImpl::Slot;

  static bool Before(const Slot& a, const Slot& b) {
    return a.next_time != b.next_time ? a.next_time < b.next_time : a.order < b.order;
  }
  bool operator()(const BEXOTimerQueueElementImpl* a, const BEXOTimerQueueElementImpl* b) const {
    return Before(a->slot(), b->slot());
  }
  bool operator()(const BEXOTimerQueueElementImpl* a, const Slot& b) const { return Before(a->slot(), b); }
  bool operator()(const Slot& a, const BEXOTimerQueueElementImpl* b) const { return Before(a, b->slot()); }
};
