// What the service manager is told about readiness ($NOTIFY_SOCKET, see
// Notify.h): READY=1 when the loop first goes idle (the plug-in's start-up
// flush ran and the inputs' rules are made, the point --until-idle exits
// at), RELOADING=1 when a reload starts, READY=1 again once it is applied
// or refused, STOPPING=1 on the way out. Event-loop thread only.
#pragma once

namespace Agent::Service {

class Readiness {
 public:
  bool ready() const { return ready_; }
  // READY=1 was sent at least once: the first convergence is done.
  bool started() const { return started_; }
  // The loop is idle: READY=1 unless already sent since the last reload.
  void doNotifyIdle();
  void reloadingIs();
  void stoppingIs();

 private:
  bool ready_ = false;
  bool started_ = false;
};

}  // namespace Agent::Service
