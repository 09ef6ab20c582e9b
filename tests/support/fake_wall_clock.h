// Moves the platform's wall clock (bexo::WallClockNow) in tests that need a
// date other than today's: day changes, expiries past 2038.
#pragma once

namespace bexo_test {

// Local noon of the given date, as the wall clock of the platform from now
// on; UseSystemClock() undoes it.
void SetWallClockToNoon(int year, int month, int day);
void UseSystemClock();

}  // namespace bexo_test
