// BEXOLogRolloverCounter: the sequence number of the day's event log file,
// kept in shared memory so that a daemon and its forked workers number their
// files alike. The counter goes back to 1 when the day of the month differs
// from that of the last change; month and year are deliberately not compared.
//
// Layout (8 bytes, no padding, may sit at any byte offset): counter (int32),
// then the time of the last change as 32-bit seconds since the epoch.
//
// Thread safety: none of its own. The event log reads and increments it only
// while it holds its in-process and cross-process mutexes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "bexo_export.h"

struct BEXO_EXPORT __attribute__((packed)) BEXOLogRolloverCounter {
  int32_t counter;
  uint32_t stamp;  // unsigned: good until 2106, same 32-bit layout

  // counter = 1, stamp = now.
  void Init();
  // The counter, after resetting it to 1 when today's day of the month is
  // not that of the stamp.
  int GetCounter();
  // counter + 1, stamp = now.
  void IncrementCounter();
};

static_assert(sizeof(BEXOLogRolloverCounter) == 8, "the counter is 8 bytes in shared memory");
static_assert(offsetof(BEXOLogRolloverCounter, stamp) == 4, "the stamp follows the counter");

// A zero-filled counter in a new private System V segment of 8 bytes, already
// marked for removal, so that it is shared with processes forked later and
// freed when the last of them detaches. Null when the segment cannot be made
// or attached (logged at level 1).
BEXO_EXPORT BEXOLogRolloverCounter* CreateSharedRolloverCounter();
