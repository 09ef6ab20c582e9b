#include "BEXOTimerQueue.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BEXOHiResTmr.h"
#include "BEXONanoTime.h"
#include "primitives/BEXOTimerQueueImpl.h"
#include "primitives/lcltime.h"
#include "primitives/timer_clock.h"
#include "temp_root.h"

namespace {

// A clock whose sleeps only advance its time. After `stop_after` sleeps it
// raises the queue's stop flag, as a signal handler would.
class FakeClock : public bexo::TimerClock {
 public:
  FakeClock(int now, volatile bool& stop, int stop_after)
      : now_(now), stop_(stop), stop_after_(stop_after) {}

  int Now() override { return now_; }
  void Sleep(unsigned int seconds) override {
    sleeps_.push_back(seconds);
    now_ += static_cast<int>(seconds);
    if (static_cast<int>(sleeps_.size()) == stop_after_) stop_ = true;
  }

  void Advance(int seconds) { now_ += seconds; }
  const std::vector<unsigned int>& sleeps() const { return sleeps_; }

 private:
  int now_;
  volatile bool& stop_;
  int stop_after_;
  std::vector<unsigned int> sleeps_;
};

// One queue on a fake clock, with elements that log "name@time" when called.
class TimerQueueTest : public bexo_test::TempRootTest {
 protected:
  struct Job {
    TimerQueueTest* test;
    std::string name;
    std::function<void()> extra;
  };

  void Start(int now, int stop_after) {
    clock_ = std::make_unique<FakeClock>(now, stop_, stop_after);
    queue_ = std::make_unique<BEXOTimerQueueImpl>(stop_, *clock_);
  }

  BEXOTimerQueueElement* Element(const std::string& name, int start, int period, int order,
                                 std::function<void()> extra = nullptr) {
    jobs_.push_back(std::make_unique<Job>(Job{this, name, std::move(extra)}));
    elements_.emplace_back(BEXOTimerQueueElement::factory(start, period, &Call, jobs_.back().get(), order));
    return elements_.back().get();
  }

  static void Call(void* argument) {
    Job* job = static_cast<Job*>(argument);
    job->test->calls_.push_back(job->name + "@" + std::to_string(job->test->clock_->Now()));
    if (job->extra) job->extra();
  }

  static int NextTime(BEXOTimerQueueElement* element) {
    return static_cast<BEXOTimerQueueElementImpl*>(element)->next_time();
  }

  volatile bool stop_ = false;
  std::unique_ptr<FakeClock> clock_;
  std::unique_ptr<BEXOTimerQueueImpl> queue_;
  std::vector<std::unique_ptr<Job>> jobs_;
  std::vector<std::unique_ptr<BEXOTimerQueueElement>> elements_;
  std::vector<std::string> calls_;
};

TEST_F(TimerQueueTest, AddArmsToTheFirstPointAfterNow) {
  struct Case {
    int start, period, now, next;
  };
  const Case cases[] = {
      {1000, 60, 1150, 1180},  // the next point of the rhythm
      {1000, 60, 1180, 1240},  // strictly after now
      {1000, 60, 1000, 1060},
      {1000, 60, 990, 1060},   // a start in the future fires one period after it
      {1000, 60, 939, 1000},   // truncation toward zero
      {0, 300, 1700000123, 1700000400},
      {-50, 7, -50, -43},
  };
  for (const Case& c : cases) {
    Start(c.now, 0);
    BEXOTimerQueueElement* element = Element("e", c.start, c.period, 0);
    EXPECT_EQ(NextTime(element), 0) << "not armed before add";
    queue_->add(element);
    EXPECT_EQ(NextTime(element), c.next) << c.start << "/" << c.period << " at " << c.now;
  }
}

TEST_F(TimerQueueTest, RunSleepsUntilDueAndRearms) {
  Start(1150, 3);
  queue_->add(Element("a", 1000, 60, 0));
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"a@1180", "a@1240"}));
  EXPECT_EQ(clock_->sleeps(), (std::vector<unsigned int>{30, 60, 60}));
}

TEST_F(TimerQueueTest, EqualDueTimesRunByOrderThenByAddition) {
  Start(0, 2);
  queue_->add(Element("late", 0, 10, 2));
  queue_->add(Element("first", 0, 10, 1));
  queue_->add(Element("second", 0, 10, 1));
  queue_->add(Element("early", 0, 10, -5));
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"early@10", "first@10", "second@10", "late@10"}));
}

// The sleep is measured from the start of the pass: a slow callback makes the
// next pass start late rather than early.
TEST_F(TimerQueueTest, CallbackTimeIsNotSubtractedFromTheSleep) {
  Start(0, 2);
  queue_->add(Element("slow", 0, 60, 0, [this] { clock_->Advance(5); }));
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"slow@60"}));
  EXPECT_EQ(clock_->sleeps(), (std::vector<unsigned int>{60, 60}));
}

TEST_F(TimerQueueTest, DelRemovesExactlyThatElement) {
  Start(0, 2);
  BEXOTimerQueueElement* keep = Element("keep", 0, 10, 0);
  BEXOTimerQueueElement* twin = Element("twin", 0, 10, 0);  // same slot as keep
  BEXOTimerQueueElement* never_added = Element("never", 0, 10, 0);
  queue_->add(keep);
  queue_->add(twin);
  queue_->del(twin);
  queue_->del(twin);         // no longer queued
  queue_->del(never_added);  // never queued
  queue_->del(nullptr);
  EXPECT_EQ(queue_->size(), 1u);
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"keep@10"}));
}

TEST_F(TimerQueueTest, CallbacksMayAddAndDeleteOtherElements) {
  Start(0, 4);
  BEXOTimerQueueElement* victim = Element("victim", 0, 10, 2);
  BEXOTimerQueueElement* newcomer = Element("newcomer", 0, 5, 0);
  queue_->add(Element("boss", 0, 10, 1, [&] {
    queue_->del(victim);
    queue_->add(newcomer);
  }));
  queue_->add(victim);
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"boss@10", "newcomer@15", "newcomer@20", "boss@20"}));
}

TEST_F(TimerQueueTest, CallbackRemovingItsOwnElementEndsIt) {
  Start(0, 10);
  BEXOTimerQueueElement* once = nullptr;
  once = Element("once", 0, 10, 0, [&] { queue_->del(once); });
  queue_->add(once);
  EXPECT_EQ(queue_->run(), -1);  // nothing left to wait for
  EXPECT_EQ(calls_, (std::vector<std::string>{"once@10"}));
}

TEST_F(TimerQueueTest, RunReturnsAtOnceWhenEmptyOrStopped) {
  Start(100, 0);
  EXPECT_EQ(queue_->run(), -1);
  queue_->add(Element("a", 0, 10, 0));
  clock_->Advance(1000);  // long overdue
  stop_ = true;
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(clock_->sleeps().empty());
}

// A wall clock set back must not make one pass call the same element over
// and over until the time catches up.
TEST_F(TimerQueueTest, ClockSetBackRunsEachDueElementOncePerPass) {
  Start(0, 2);
  queue_->add(Element("a", 0, 10, 0, [this] { clock_->Advance(-3600); }));
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"a@10"}));
  EXPECT_EQ(clock_->sleeps(), (std::vector<unsigned int>{10, 10}));
}

TEST_F(TimerQueueTest, ZeroPeriodFaults) {
  Start(0, 0);
  BEXOTimerQueueElement* element = Element("zero", 0, 0, 0);
  EXPECT_DEATH(queue_->add(element), "");
}

// Through the public factories, on the real clock.
TEST_F(TimerQueueTest, FactoriesBuildAWorkingQueue) {
  volatile bool stop = true;
  std::unique_ptr<BEXOTimerQueue> queue(BEXOTimerQueue::factory(stop));
  EXPECT_EQ(queue->run(), -1);
  int calls = 0;
  std::unique_ptr<BEXOTimerQueueElement> element(BEXOTimerQueueElement::factory(
      0, 3600, [](void* count) { ++*static_cast<int*>(count); }, &calls, 0));
  const int before = lcltime();
  queue->add(element.get());
  const int next = NextTime(element.get());
  EXPECT_GT(next, before);
  EXPECT_LE(next, lcltime() + 3600);
  EXPECT_EQ(next % 3600, 0);
  EXPECT_EQ(queue->run(), 0);
  EXPECT_EQ(calls, 0);
  queue->del(element.get());
  EXPECT_EQ(queue->run(), -1);
}

class LocalOffsetTest : public bexo_test::TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    const char* tz = getenv("TZ");
    had_tz_ = tz != nullptr;
    if (had_tz_) saved_tz_ = tz;
  }
  void TearDown() override {
    if (had_tz_) {
      setenv("TZ", saved_tz_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
    TempRootTest::TearDown();
  }

 private:
  bool had_tz_ = false;
  std::string saved_tz_;
};

TEST_F(LocalOffsetTest, OffsetCoversDayAndYearBoundaries) {
  struct Case {
    const char* tz;
    time_t utc;
    int offset;
  };
  const Case cases[] = {
      {"UTC0", 1781000000, 0},
      {"JST-9", 1781000000, 9 * 3600},
      {"JST-9", 1780344000, 9 * 3600},   // 2026-06-01 20:00 UTC: next local day
      {"JST-9", 1798747200, 9 * 3600},   // 2026-12-31 20:00 UTC: next local year
      {"EST5", 1798768800, -5 * 3600},   // 2027-01-01 02:00 UTC: previous local year
      {"EST5", 1780279200, -5 * 3600},   // 2026-06-01 02:00 UTC: previous local day
      {"IST-5:30", 1798763400, 5 * 3600 + 1800},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1781000000, 2 * 3600},  // summer
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1798747200, 3600},      // winter
  };
  for (const Case& c : cases) {
    setenv("TZ", c.tz, 1);
    tzset();
    EXPECT_EQ(bexo::LocalOffsetAt(c.utc), c.offset) << c.tz << " at " << c.utc;
  }
}

TEST_F(LocalOffsetTest, LcltimeIsUtcPlusTheOffset) {
  const time_t before = time(nullptr);
  const int local = lcltime();
  const time_t after = time(nullptr);
  const int offset = bexo::LocalOffsetAt(before);
  EXPECT_GE(local, before + offset);
  EXPECT_LE(local, after + offset);
}

using HiResTmrTest = bexo_test::TempRootTest;

TEST_F(HiResTmrTest, EnabledTimerAddsElapsedTimeAndCount) {
  BEXOAtomicInt64 total(1000);
  BEXOAtomicInt64 count(7);
  const uint64_t outer_start = BEXONanoTime();
  uint64_t inner = 0;
  {
    BEXOHiResTmr timer(total, count, true);
    inner = timer.TimeSinceStart();
  }
  const uint64_t outer = BEXONanoTime() - outer_start;
  const int64_t added = static_cast<int64_t>(total) - 1000;
  EXPECT_GE(static_cast<uint64_t>(added), inner);
  EXPECT_LE(static_cast<uint64_t>(added), outer);
  EXPECT_EQ(static_cast<int64_t>(count), 8);
}

TEST_F(HiResTmrTest, DisabledTimerOnlyCounts) {
  BEXOAtomicInt64 total(1000);
  BEXOAtomicInt64 count(7);
  {
    BEXOHiResTmr timer(total, count, false);
    EXPECT_EQ(timer.TimeSinceStart(), 0u);
  }
  EXPECT_EQ(static_cast<int64_t>(total), 1000);
  EXPECT_EQ(static_cast<int64_t>(count), 8);
}

}  // namespace
