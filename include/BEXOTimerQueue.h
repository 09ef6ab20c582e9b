// A queue of periodic jobs on a wall-clock rhythm, run by one thread of the
// caller's choosing:
//
//   volatile bool stop = false;
//   BEXOTimerQueue* queue = BEXOTimerQueue::factory(stop);
//   BEXOTimerQueueElement* job = BEXOTimerQueueElement::factory(0, 300, Rotate, &state, 0);
//   queue->add(job);   // due at the next multiple of 300 s after now
//   queue->run();      // until `stop` is raised; returns 0
//
// Times are whole seconds of local wall-clock time as lcltime() gives them.
// An element is due at start + k * period for the smallest k that lies
// strictly after the moment it is added or re-armed; elements due in the same
// second run in ascending `order`, equal orders in the order they were added.
// run() sleeps until the earliest element is due, calls every due element,
// re-arms it and sleeps again. It reads the stop flag when it starts and after
// each sleep, so a stop takes effect when the next element is due (or at once
// when a signal interrupts the sleep).
//
// Thread safety: none. add and del must be called before run() starts or
// from callbacks on the running thread. The queue never owns its elements:
// their owner keeps them alive while they are queued and deletes them.
#pragma once

#include "bexo_export.h"

// The current local wall-clock time in seconds since the epoch: time(NULL)
// plus the local offset from UTC. The offset is taken once per process, so a
// daylight-saving change is followed only after a restart.
BEXO_EXPORT int lcltime();

class BEXO_EXPORT BEXOTimerQueueElement {
 public:
  virtual ~BEXOTimerQueueElement();

  // A periodic job: callback(argument) every `period` seconds (not 0) on the
  // rhythm through `start`. `order` breaks ties between elements due at the
  // same second, smaller first. The caller owns the result.
  static BEXOTimerQueueElement* factory(int start, int period, void (*callback)(void*),
                                        void* argument, int order);
};

class BEXO_EXPORT BEXOTimerQueue {
 public:
  virtual ~BEXOTimerQueue();

  // Arms the element from the current time and queues it. Only elements made
  // by BEXOTimerQueueElement::factory are queued; others are ignored.
  virtual void add(BEXOTimerQueueElement* element) = 0;
  // Removes that very element if it is queued; it is not destroyed.
  virtual void del(BEXOTimerQueueElement* element) = 0;
  // Runs due elements until the stop flag is raised: returns 0 then, or -1
  // at once when the queue is empty (or becomes empty because callbacks
  // removed every element).
  virtual int run() = 0;

  // A new, empty queue bound to the caller's stop flag; the caller owns it.
  static BEXOTimerQueue* factory(volatile bool& stop);
};
