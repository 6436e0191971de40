#include "tests/support/ManualLoop.h"

ManualLoop::ManualLoop(double start)
    : clock_(new Kiv::ManualClock(start)), am_(new Kiv::ActivityManager(clock_)) {
  Kiv::activityManagerIs(am_);
}

ManualLoop::~ManualLoop() {
  Kiv::activityManagerIs(nullptr);
}

void ManualLoop::advance(double seconds) {
  clock_->advance(seconds);
  am_->runUntilIdle();
}
