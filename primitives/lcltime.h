// The local offset from UTC behind lcltime(), exposed so that it can be
// checked for any time zone and instant.
//
// Thread safety: reentrant (localtime_r, gmtime_r).
#pragma once

#include <time.h>

namespace bexo {

// Seconds to add to UTC to get local wall-clock time at instant `t`.
int LocalOffsetAt(time_t t);

}  // namespace bexo
