#include "BEXONanoTime.h"

#include <time.h>

uint64_t BEXONanoTime() {
  // CLOCK_MONOTONIC is served from the vDSO: no system call on the hot path.
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}
