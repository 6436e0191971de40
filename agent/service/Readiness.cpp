#include "agent/service/Readiness.h"

#include "agent/service/Notify.h"

namespace Agent::Service {

void Readiness::doNotifyIdle() {
  if (ready_) return;
  notify("READY=1");
  ready_ = true;
  started_ = true;
}

void Readiness::reloadingIs() {
  if (!ready_) return;
  notifyReloading();
  ready_ = false;
}

void Readiness::stoppingIs() {
  notify("STOPPING=1");
}

}  // namespace Agent::Service
