#include "primitives/BEXOTimerQueueImpl.h"

#include <stdint.h>

namespace {

BEXOTimerQueueElementImpl* Implementation(BEXOTimerQueueElement* element) {
  return dynamic_cast<BEXOTimerQueueElementImpl*>(element);
}

}  // namespace

void BEXOTimerQueueImpl::add(BEXOTimerQueueElement* element) {
  BEXOTimerQueueElementImpl* impl = Implementation(element);
  if (impl == nullptr) return;
  impl->Arm(clock_.Now());
  // A multiset inserts after its equals, so equal due times and orders keep
  // the order in which they were added.
  elements_.insert(impl);
}

void BEXOTimerQueueImpl::del(BEXOTimerQueueElement* element) {
  BEXOTimerQueueElementImpl* impl = Implementation(element);
  if (impl != nullptr) Erase(impl, impl->slot());
}

bool BEXOTimerQueueImpl::Erase(const BEXOTimerQueueElementImpl* element,
                               BEXOTimerQueueElementImpl::Slot slot) {
  auto range = elements_.equal_range(slot);
  for (auto it = range.first; it != range.second; ++it) {
    if (*it == element) {
      elements_.erase(it);
      return true;
    }
  }
  return false;
}

int BEXOTimerQueueImpl::run() {
  if (elements_.empty()) return -1;
  if (stop_) return 0;
  for (;;) {
    const int now = clock_.Now();
    // Every element due now runs once, in sort order. A re-armed element
    // lands after now, so with a steady clock the count only matters when the
    // wall clock was set back: it keeps a pass from looping on the same
    // element until time catches up.
    size_t due = 0;
    for (auto it = elements_.begin(); it != elements_.end() && (*it)->next_time() <= now; ++it) ++due;
    for (; due > 0 && !elements_.empty(); --due) {
      BEXOTimerQueueElementImpl* first = *elements_.begin();
      if (first->next_time() > now) break;
      const BEXOTimerQueueElementImpl::Slot slot = first->slot();
      first->Call();
      // Found by its slot, so a callback that removed (or even destroyed) its
      // own element does not trip the queue: the element stays removed.
      if (Erase(first, slot)) add(first);
    }
    if (elements_.empty()) return -1;
    // Measured from the time the pass started, so time spent in callbacks is
    // not subtracted: the next pass starts at the earliest due time or later.
    const int64_t wait = static_cast<int64_t>((*elements_.begin())->next_time()) - now;
    if (wait > 0) clock_.Sleep(static_cast<unsigned int>(wait));
    if (stop_) return 0;
  }
}
