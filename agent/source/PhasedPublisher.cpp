#include "agent/source/PhasedPublisher.h"

#include <iostream>

namespace Agent {

std::string summary(const StateDocument& d) {
  return std::to_string(d.interfaces.size()) + " interfaces, " + std::to_string(d.vrfs.size()) +
         " VRFs, " + std::to_string(d.virtualIps.size()) + " IPv4 VIPs, " +
         std::to_string(d.virtualIps6.size()) + " IPv6 VIPs";
}

void PhasedPublisher::targetIs(StateDocument next, const std::string& origin, bool reload) {
  // Behind a phase 1, this target's or an earlier one's, the target waits.
  const bool behind = waiting_.has_value();
  if (std::optional<StateDocument> first = reloadPhaseOne(publisher_.current(), next)) {
    const std::size_t withdrawn = publisher_.publish(*first);
    phaseOneChanges_ += withdrawn;
    std::cerr << "acl-agent: published " << origin << ", phase 1 of 2: " << withdrawn
              << " virtual IPs withdrawn\n";
  } else if (!behind) {
    waiting_ = std::move(next);
    waitingOrigin_ = origin;
    waitingReload_ = reload;
    doPublishWaiting();
    return;
  }
  waiting_ = std::move(next);
  waitingOrigin_ = origin;
  waitingReload_ = waitingReload_ || reload;
}

void PhasedPublisher::doPublishWaiting() {
  if (!waiting_) return;
  const StateDocument next = std::move(*waiting_);
  waiting_.reset();
  const std::size_t changes = phaseOneChanges_ + publisher_.publish(next);
  phaseOneChanges_ = 0;
  lastChanges_ = changes;
  std::cerr << "acl-agent: published " << waitingOrigin_ << ": " << summary(next);
  if (waitingReload_) std::cerr << " (" << changes << " changes)";
  std::cerr << "\n";
  waitingReload_ = false;
  if (published_) published_(waitingOrigin_);
}

}  // namespace Agent
