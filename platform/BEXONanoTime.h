// A monotonic nanosecond clock for measuring short intervals (BEXOHiResTmr).
// It never goes backwards, also when the wall clock is set, and its origin is
// arbitrary: only differences mean anything.
//
// Thread safety: may be called from any thread.
#pragma once

#include <stdint.h>

#include "bexo_export.h"

BEXO_EXPORT uint64_t BEXONanoTime();
