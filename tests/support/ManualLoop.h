// A test's event loop on a manual clock, installed as the process's
// activity manager for the test's lifetime. Time moves only by advance().
#pragma once

#include "platform/kiv/ActivityManager.h"

class ManualLoop {
 public:
  explicit ManualLoop(double start = 100.0);
  ~ManualLoop();
  Kiv::ManualClock& clock() { return *clock_; }
  Kiv::ActivityManager& loop() { return *am_; }
  // Moves the clock and runs everything that is then due.
  void advance(double seconds);
  void runUntilIdle() { am_->runUntilIdle(); }

 private:
  Kiv::Ptr<Kiv::ManualClock> clock_;
  Kiv::Ptr<Kiv::ActivityManager> am_;
};
