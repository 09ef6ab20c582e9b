#include "wall_clock.h"

#include <atomic>

namespace bexo {
namespace {

std::atomic<struct timespec (*)()> g_test_clock{nullptr};

}  // namespace

struct timespec WallClockNow() {
  if (auto clock = g_test_clock.load(std::memory_order_acquire)) return clock();
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

void SetWallClockForTesting(struct timespec (*clock)()) {
  g_test_clock.store(clock, std::memory_order_release);
}

}  // namespace bexo
