// Oru::TimerWheel on a manual clock: when a request fires, that it fires
// once, and the requests that must never fire.
#include "platform/oru/TimerWheel.h"

#include <gtest/gtest.h>

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

  void onTime() override {
    firedAtMs.push_back(std::lround(Kiv::now() * 1000.0));
    if (fires_) ++*fires_;
    if (action) action();
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

// Each row: one alarm's requests in order (a later one replaces the earlier,
// -1 cancels) and the times it fires at.
struct Row {
  const char* what;
  std::vector<long> requestsMs, firedMs;
};

TEST_F(TimerWheelTest, FiresOnceAtTheFirstTickAtOrAfterItsLastRequest) {
  const Row rows[] = {
      {"between ticks", {100025}, {100030}},
      {"on a tick", {100050}, {100050}},
      {"in the past: the next tick, never the current one", {50000}, {100010}},
      {"beyond one turn of the 8 buckets", {100500}, {100500}},
      {"postponed", {100020, 100080}, {100080}},
      {"advanced", {100080, 100030}, {100030}},
      {"cancelled", {100040, -1}, {}},
  };
  std::vector<std::unique_ptr<Alarm>> alarms;
  for (const Row& r : rows) {
    alarms.push_back(std::make_unique<Alarm>(wheel_));
    for (long ms : r.requestsMs)
      ms < 0 ? alarms.back()->timeMinDel() : alarms.back()->timeMinIs(at(ms));
  }
  // Destroyed alarms never fire: one gone before its time, and of two due at
  // one tick, whichever runs first destroys the other.
  int fires = 0;
  std::make_unique<Alarm>(wheel_, &fires)->timeMinIs(at(100030));
  auto first = std::make_unique<Alarm>(wheel_, &fires);
  auto second = std::make_unique<Alarm>(wheel_, &fires);
  first->action = [&] { second.reset(); };
  second->action = [&] { first.reset(); };
  first->timeMinIs(at(100050));
  second->timeMinIs(at(100050));
  runToMs(101000);
  for (std::size_t i = 0; i < alarms.size(); ++i)
    EXPECT_EQ(alarms[i]->firedAtMs, rows[i].firedMs) << rows[i].what;
  EXPECT_EQ(fires, 1);

  // A jump of the clock over many turns fires what is due, once, and no more.
  alarms[0]->timeMinIs(at(101050));
  alarms[1]->timeMinIs(at(102000));
  loop_.advance(0.5);
  EXPECT_EQ(alarms[0]->firedAtMs, (std::vector<long>{100030, 101500}));
  runToMs(103000);
  EXPECT_EQ(alarms[1]->firedAtMs, (std::vector<long>{100050, 102000}));
  EXPECT_EQ(alarms[0]->firedAtMs.size(), 2u);
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
