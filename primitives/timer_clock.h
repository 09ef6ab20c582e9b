// The clock a timer queue reads and sleeps on. The system clock is lcltime()
// and sleep(3); tests substitute a clock whose sleeps only advance its time.
//
// Thread safety: the system clock may be used from any thread.
#pragma once

namespace bexo {

class TimerClock {
 public:
  virtual ~TimerClock() = default;

  // Local wall-clock seconds, as lcltime().
  virtual int Now() = 0;
  // Sleeps up to `seconds`; a signal may end the sleep early.
  virtual void Sleep(unsigned int seconds) = 0;

  static TimerClock& System();
};

}  // namespace bexo
