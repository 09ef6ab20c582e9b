// The timer queue behind BEXOTimerQueue: an ordered multiset of elements,
// earliest first, over a clock that tests may replace.
//
// Thread safety: none (see BEXOTimerQueue.h).
#pragma once

#include <stddef.h>

#include <set>

#include "BEXOTimerQueue.h"
#include "primitives/BEXOTimerQueueElementImpl.h"
#include "primitives/timer_clock.h"

class BEXOTimerQueueImpl : public BEXOTimerQueue {
 public:
  explicit BEXOTimerQueueImpl(volatile bool& stop,
                              bexo::TimerClock& clock = bexo::TimerClock::System())
      : stop_(stop), clock_(clock) {}

  void add(BEXOTimerQueueElement* element) override;
  void del(BEXOTimerQueueElement* element) override;
  int run() override;

  size_t size() const { return elements_.size(); }

 private:
  using Elements = std::multiset<BEXOTimerQueueElementImpl*, BEXOTimerQueueElementImplSortCriterion>;

  // Erases the node of exactly this element, looked for among the elements
  // in `slot` without touching `element`; false when it is not there.
  bool Erase(const BEXOTimerQueueElementImpl* element, BEXOTimerQueueElementImpl::Slot slot);

  volatile bool& stop_;
  Elements elements_;
  bexo::TimerClock& clock_;
};
