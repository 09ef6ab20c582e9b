#include "primitives/timer_clock.h"

#include <unistd.h>

#include "BEXOTimerQueue.h"

namespace bexo {
namespace {

class SystemTimerClock : public TimerClock {
 public:
  int Now() override { return lcltime(); }
  void Sleep(unsigned int seconds) override { sleep(seconds); }
};

}  // namespace

TimerClock& TimerClock::System() {
  static SystemTimerClock clock;
  return clock;
}

}  // namespace bexo
