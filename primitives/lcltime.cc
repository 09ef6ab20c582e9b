#include "primitives/lcltime.h"

#include "BEXOTimerQueue.h"

namespace bexo {

int LocalOffsetAt(time_t t) {
  struct tm local;
  struct tm utc;
  localtime_r(&t, &local);
  gmtime_r(&t, &utc);
  int offset = (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) -
               (utc.tm_hour * 3600 + utc.tm_min * 60 + utc.tm_sec);
  // Near midnight the two dates differ by one day, possibly across a year end.
  if (local.tm_year != utc.tm_year) {
    offset += (local.tm_year - utc.tm_year) * 86400;
  } else if (local.tm_yday != utc.tm_yday) {
    offset += (local.tm_yday - utc.tm_yday) * 86400;
  }
  return offset;
}

}  // namespace bexo

int lcltime() {
  // Taken once: the rhythm of the timer queue must not jump when the
  // daylight-saving offset changes while the daemon runs.
  static const int offset = [] {
    tzset();
    return bexo::LocalOffsetAt(time(nullptr));
  }();
  return static_cast<int>(time(nullptr) + offset);
}
