// Clocks. Time is an input: the agent runs on MonotonicClock, tests on
// ManualClock, which moves only when the test moves it. Times are seconds.
#pragma once

#include "platform/kiv/Ptr.h"

namespace Kiv {

class Clock : public PtrInterface {
 public:
  virtual double now() const = 0;
};

class MonotonicClock : public Clock {
 public:
  double now() const override;
};

class ManualClock : public Clock {
 public:
  explicit ManualClock(double start = 0.0) : now_(start) {}
  double now() const override { return now_; }
  void nowIs(double t) { now_ = t; }
  void advance(double seconds) { now_ += seconds; }

 private:
  double now_;
};

}  // namespace Kiv
