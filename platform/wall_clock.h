// The wall clock the platform's dated classes read (ux_Time::get_current_time,
// the structured log's entry stamps), with a seam so tests can move the date.
//
// Thread safety: WallClockNow from any thread; set the seam before threads start.
#pragma once

#include <time.h>

#include "bexo_export.h"

namespace bexo {

// CLOCK_REALTIME, or the test clock when one is set.
BEXO_EXPORT struct timespec WallClockNow();

// Test seam: null restores the system clock.
BEXO_EXPORT void SetWallClockForTesting(struct timespec (*clock)());

}  // namespace bexo
