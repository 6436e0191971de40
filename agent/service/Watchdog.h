// Keeps the service manager's clocks from running out while the loop is
// alive ($NOTIFY_SOCKET, Notify.h), from background timers on the loop,
// so a wedged loop (a command that hangs, a collection that never ends)
// stops them and systemd restarts the agent:
//   WATCHDOG=1 every half of $WATCHDOG_USEC (systemd's WatchdogSec=), when
//     $WATCHDOG_PID is unset or names this process;
//   EXTEND_TIMEOUT_USEC=30000000 every 10 s while `starting` says the first
//     convergence runs (a large document applied line by line takes
//     minutes), so the start job waits as long as the loop makes turns.
// Event-loop thread only.
#pragma once

#include <functional>

#include "platform/kiv/ActivityManager.h"

namespace Agent::Service {

class Watchdog {
 public:
  static constexpr double extendEvery = 10.0;  // seconds
  static constexpr double extendBy = 30.0;     // seconds

  Watchdog(Kiv::ActivityManager& loop, std::function<bool()> starting);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // Seconds between pings asked for by the environment; 0: none.
  static double pingIntervalFromEnv();

 private:
  void handlePing();
  void handleExtend();

  Kiv::ActivityManager& loop_;
  std::function<bool()> starting_;
  double every_ = 0;
  Kiv::ActivityManager::TimerId ping_ = 0, extend_ = 0;
};

}  // namespace Agent::Service
