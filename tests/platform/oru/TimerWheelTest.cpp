// Oru::TimerWheel on a manual clock: when a request fires, that it fires
// once, and the requests that must never fire.
#include "platform/oru/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "tests/support/ManualLoop.h"

namespace {

// Records the clock (in ms) of each onTime.
class Alarm : public Oru::TimerWheel::NotifieeConst {
 public:
  explicit Alarm(const Kiv::Ptr<Oru::TimerWheel>& w, int* fires = nullptr) : fires_(fires) {
    notifierIs(w);
  }
  std::vector<long> firedAtMs;
  std::function<void()> action;
  int depth = 0;
  int maxDepth = 0;

  void onTime() override {
    ++depth;
    maxDepth = std::max(maxDepth, depth);
    firedAtMs.push_back(std::lround(Kiv::now() * 1000.0));
    if (fires_) ++*fires_;
    if (action) action();
    --depth;
  }

 private:
  int* fires_;
};

class TimerWheelTest : public ::testing::Test {
 protected:
  // Steps the clock one millisecond at a time up to `ms`, running the loop each step.
  void runToMs(long ms) {
    for (long t = std::lround(Kiv::now() * 1000.0) + 1; t <= ms; ++t) {
      loop_.clock().nowIs(static_cast<double>(t) / 1000.0);
      loop_.runUntilIdle();
    }
  }
  static double at(long ms) { return static_cast<double>(ms) / 1000.0; }

  ManualLoop loop_{100.0};
  // 10 ms ticks, as the plug-in uses; few buckets so that requests wrap round.
  Kiv::Ptr<Oru::TimerWheel> wheel_ = new Oru::TimerWheel(nullptr, nullptr, 10, 255, false, 8);
};

TEST_F(TimerWheelTest, FiresOnceAtTheFirstTickAtOrAfterTheRequest) {
  Alarm between(wheel_), onTick(wheel_), past(wheel_), farAhead(wheel_);
  between.timeMinIs(at(100025));
  onTick.timeMinIs(at(100050));
  past.timeMinIs(50.0);
  farAhead.timeMinIs(at(100500));  // beyond one turn of the 8 buckets
  runToMs(101000);
  EXPECT_EQ(between.firedAtMs, (std::vector<long>{100030}));
  EXPECT_EQ(onTick.firedAtMs, (std::vector<long>{100050}));
  EXPECT_EQ(past.firedAtMs, (std::vector<long>{100010})) << "the next tick, never the current one";
  EXPECT_EQ(farAhead.firedAtMs, (std::vector<long>{100500}));

  // A jump of the clock over many turns fires what is due, once, and no more.
  between.timeMinIs(at(101050));
  onTick.timeMinIs(at(102000));
  loop_.advance(0.5);
  EXPECT_EQ(between.firedAtMs, (std::vector<long>{100030, 101500}));
  runToMs(103000);
  EXPECT_EQ(onTick.firedAtMs, (std::vector<long>{100050, 102000}));
  EXPECT_EQ(between.firedAtMs.size(), 2u);
  EXPECT_EQ(wheel_->pendingCount(), 0u);
  EXPECT_TRUE(loop_.loop().idle());
}

TEST_F(TimerWheelTest, AskingForNowInsideOnTimeMeansTheNextTick) {
  Alarm a(wheel_);
  a.action = [&] {
    if (a.firedAtMs.size() < 3) a.timeMinIs(Kiv::now());
  };
  a.timeMinIs(at(100030));
  runToMs(100200);
  EXPECT_EQ(a.firedAtMs, (std::vector<long>{100030, 100040, 100050}));
  EXPECT_EQ(a.maxDepth, 1) << "onTime must not be re-entered";
  EXPECT_TRUE(loop_.loop().idle());
}

TEST_F(TimerWheelTest, ReplacedCancelledAndDestroyedRequestsNeverFire) {
  int fires = 0;
  Alarm postponed(wheel_), advanced(wheel_), cancelled(wheel_, &fires);
  postponed.timeMinIs(at(100020));
  postponed.timeMinIs(at(100080));
  advanced.timeMinIs(at(100080));
  advanced.timeMinIs(at(100030));
  cancelled.timeMinIs(at(100040));
  cancelled.timeMinDel();
  auto gone = std::make_unique<Alarm>(wheel_, &fires);
  gone->timeMinIs(at(100030));
  gone.reset();
  // Two alarms due at one tick; whichever runs first destroys the other.
  auto first = std::make_unique<Alarm>(wheel_, &fires);
  auto second = std::make_unique<Alarm>(wheel_, &fires);
  first->action = [&] { second.reset(); };
  second->action = [&] { first.reset(); };
  first->timeMinIs(at(100050));
  second->timeMinIs(at(100050));
  runToMs(100500);
  EXPECT_EQ(postponed.firedAtMs, (std::vector<long>{100080}));
  EXPECT_EQ(advanced.firedAtMs, (std::vector<long>{100030}));
  EXPECT_EQ(fires, 1) << "one of the pair, and nothing cancelled or destroyed";
  EXPECT_EQ(wheel_->pendingCount(), 0u);
  EXPECT_TRUE(loop_.loop().idle());
}

// After days of uptime a tick's time, converted back to ticks, can round one
// short; the wheel must still count the tick its loop timer was set for.
TEST(TimerWheelUptime, FiresAtItsLoopTimeAfterDaysOfUptime) {
  ManualLoop loop(524288.0);
  Kiv::Ptr<Oru::TimerWheel> wheel = new Oru::TimerWheel(nullptr, nullptr, 10, 255, false, 1024);
  int fires = 0;
  Alarm alarm(wheel, &fires);
  for (int i = 1; i <= 2000; ++i) {
    alarm.timeMinIs(Kiv::now());
    loop.clock().nowIs(loop.loop().nextTimerTime());
    loop.runUntilIdle();
    ASSERT_EQ(fires, i) << "at clock " << Kiv::now();
  }
}

}  // namespace
