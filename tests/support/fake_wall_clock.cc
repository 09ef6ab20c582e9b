#include "fake_wall_clock.h"

#include <time.h>

#include "wall_clock.h"

namespace bexo_test {
namespace {

time_t g_fake_now = 0;

struct timespec FakeClock() { return {g_fake_now, 0}; }

}  // namespace

void SetWallClockToNoon(int year, int month, int day) {
  struct tm fields = {};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = 12;
  fields.tm_isdst = -1;
  g_fake_now = mktime(&fields);
  bexo::SetWallClockForTesting(FakeClock);
}

void UseSystemClock() { bexo::SetWallClockForTesting(nullptr); }

}  // namespace bexo_test
