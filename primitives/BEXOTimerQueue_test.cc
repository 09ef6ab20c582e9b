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

// One queue on a clock whose sleeps only advance its time, with elements that
// log "name@time" when called. After `stop_after_` sleeps the clock raises the
// queue's stop flag, as a signal handler would.
class TimerQueueTest : public bexo_test::TempRootTest, public bexo::TimerClock {
 protected:
  struct Job {
    TimerQueueTest* test;
    std::string name;
    std::function<void()> extra;
  };

  int Now() override { return now_; }
  void Sleep(unsigned int seconds) override {
    sleeps_.push_back(seconds);
    now_ += static_cast<int>(seconds);
    if (static_cast<int>(sleeps_.size()) == stop_after_) stop_ = true;
  }

  void Start(int now, int stop_after) {
    now_ = now;
    stop_after_ = stop_after;
    stop_ = false;
    sleeps_.clear();
    calls_.clear();
    queue_ = std::make_unique<BEXOTimerQueueImpl>(stop_, *this);
  }

  BEXOTimerQueueElement* Element(const std::string& name, int start, int period, int order,
                                 std::function<void()> extra = nullptr) {
    jobs_.push_back(std::make_unique<Job>(Job{this, name, std::move(extra)}));
    elements_.emplace_back(BEXOTimerQueueElement::factory(start, period, &Call, jobs_.back().get(), order));
    return elements_.back().get();
  }

  static void Call(void* argument) {
    Job* job = static_cast<Job*>(argument);
    job->test->calls_.push_back(job->name + "@" + std::to_string(job->test->now_));
    if (job->extra) job->extra();
  }

  int now_ = 0;
  int stop_after_ = 0;
  volatile bool stop_ = false;
  std::vector<unsigned int> sleeps_;
  std::unique_ptr<BEXOTimerQueueImpl> queue_;
  std::vector<std::unique_ptr<Job>> jobs_;
  std::vector<std::unique_ptr<BEXOTimerQueueElement>> elements_;
  std::vector<std::string> calls_;
};

int NextTime(BEXOTimerQueueElement* element) {
  return static_cast<BEXOTimerQueueElementImpl*>(element)->next_time();
}

TEST_F(TimerQueueTest, AddArmsToTheFirstPointAfterNow) {
  struct Case {
    int start, period, now, next;
  };
  const Case cases[] = {
      {1000, 60, 1150, 1180},  // the next point of the rhythm
      {1000, 60, 1180, 1240},  // strictly after now
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

// The sleep is measured from the start of the pass: a slow callback makes the
// next pass start late rather than early; a wall clock set back must not make
// one pass call the same element over and over until the time catches up.
TEST_F(TimerQueueTest, RunSleepsUntilDueAndRearms) {
  struct Case {
    int now, start, period, shift, passes;
    std::vector<std::string> calls;
    std::vector<unsigned int> sleeps;
  };
  const Case cases[] = {
      {1150, 1000, 60, 0, 3, {"a@1180", "a@1240"}, {30, 60, 60}},
      {0, 0, 60, 5, 2, {"a@60"}, {60, 60}},
      {0, 0, 10, -3600, 2, {"a@10"}, {10, 10}},
  };
  for (const Case& c : cases) {
    Start(c.now, c.passes);
    queue_->add(Element("a", c.start, c.period, 0, [this, &c] { now_ += c.shift; }));
    EXPECT_EQ(queue_->run(), 0);
    EXPECT_EQ(calls_, c.calls) << c.shift;
    EXPECT_EQ(sleeps_, c.sleeps) << c.shift;
  }
}

// The twin shares its due time and order with two others: del must remove
// exactly it, and ignore elements that are not queued.
TEST_F(TimerQueueTest, EqualDueTimesRunByOrderThenByAdditionAndDelRemovesExactlyOne) {
  Start(0, 2);
  BEXOTimerQueueElement* twin = Element("twin", 0, 10, 1);
  queue_->add(Element("late", 0, 10, 2));
  queue_->add(Element("first", 0, 10, 1));
  queue_->add(twin);
  queue_->add(Element("second", 0, 10, 1));
  queue_->add(Element("early", 0, 10, -5));
  queue_->del(twin);
  queue_->del(twin);
  queue_->del(Element("never", 0, 10, 1));
  queue_->del(nullptr);
  EXPECT_EQ(queue_->size(), 4u);
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"early@10", "first@10", "second@10", "late@10"}));
}

// The newcomer removes itself when first called.
TEST_F(TimerQueueTest, CallbacksMayAddAndDeleteElements) {
  Start(0, 4);
  BEXOTimerQueueElement* victim = Element("victim", 0, 10, 2);
  BEXOTimerQueueElement* newcomer = nullptr;
  newcomer = Element("newcomer", 0, 5, 0, [&] { queue_->del(newcomer); });
  queue_->add(Element("boss", 0, 10, 1, [&] {
    queue_->del(victim);
    queue_->add(newcomer);
  }));
  queue_->add(victim);
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_EQ(calls_, (std::vector<std::string>{"boss@10", "newcomer@15", "boss@20"}));
}

TEST_F(TimerQueueTest, RunReturnsAtOnceWhenEmptyOrStopped) {
  Start(100, 0);
  EXPECT_EQ(queue_->run(), -1);
  queue_->add(Element("a", 0, 10, 0));
  now_ += 1000;  // long overdue
  stop_ = true;
  EXPECT_EQ(queue_->run(), 0);
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(sleeps_.empty());
}

// Restores TZ, which the cases change.
class LocalOffsetTest : public bexo_test::TempRootTest {
 protected:
  void TearDown() override {
    had_tz_ ? setenv("TZ", saved_tz_.c_str(), 1) : unsetenv("TZ");
    tzset();
    TempRootTest::TearDown();
  }

 private:
  const bool had_tz_ = getenv("TZ") != nullptr;
  const std::string saved_tz_ = had_tz_ ? getenv("TZ") : "";
};

TEST_F(LocalOffsetTest, OffsetCoversDayAndYearBoundariesAndLcltimeAddsIt) {
  struct Case {
    const char* tz;
    time_t utc;
    int offset;
  };
  const Case cases[] = {
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
  const time_t before = time(nullptr);  // TZ is now CET: lcltime adds its offset
  const int local = lcltime();
  EXPECT_GE(local, before + bexo::LocalOffsetAt(before));
  EXPECT_LE(local, time(nullptr) + bexo::LocalOffsetAt(before));
}

using HiResTmrTest = bexo_test::TempRootTest;

// Enabled, the timer adds the time it lived; disabled, it only counts.
TEST_F(HiResTmrTest, AddsElapsedTimeAndCount) {
  for (bool enabled : {true, false}) {
    BEXOAtomicInt64 total(1000);
    BEXOAtomicInt64 count(7);
    const uint64_t outer_start = BEXONanoTime();
    uint64_t inner = 0;
    {
      BEXOHiResTmr timer(total, count, enabled);
      inner = timer.TimeSinceStart();
    }
    const uint64_t outer = enabled ? BEXONanoTime() - outer_start : 0;
    const uint64_t added = static_cast<uint64_t>(static_cast<int64_t>(total) - 1000);
    EXPECT_GE(added, inner);
    EXPECT_LE(added, outer);
    EXPECT_EQ(static_cast<int64_t>(count), 8);
  }
}

}  // namespace
