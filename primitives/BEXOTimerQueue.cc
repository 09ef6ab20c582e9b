#include "BEXOTimerQueue.h"

#include "primitives/BEXOTimerQueueElementImpl.h"
#include "primitives/BEXOTimerQueueImpl.h"

BEXOTimerQueueElement::~BEXOTimerQueueElement() = default;

BEXOTimerQueueElement* BEXOTimerQueueElement::factory(int start, int period,
                                                      void (*callback)(void*), void* argument,
                                                      int order) {
  return new BEXOTimerQueueElementImpl(start, period, callback, argument, order);
}

BEXOTimerQueue::~BEXOTimerQueue() = default;

BEXOTimerQueue* BEXOTimerQueue::factory(volatile bool& stop) { return new BEXOTimerQueueImpl(stop); }
