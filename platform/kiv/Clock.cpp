#include "platform/kiv/Clock.h"

#include <time.h>

namespace Kiv {

double MonotonicClock::now() const {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

}  // namespace Kiv
