// Where every source's model goes: the one place that turns a new target
// model into published changes, in two phases when withdrawals must go
// first (see Publisher.h for why). A source (the state document, and any
// other) hands each complete, checked model to targetIs; the composition
// root calls doPublishWaiting once the plug-in has drained its backlog.
//
//   targetIs, nothing to withdraw first  -> published at once;
//   targetIs, with withdrawals           -> phase 1 published at once, the
//                                           target waits (waiting() true);
//   targetIs while a target waits        -> the new target replaces it, its
//                                           phase 1 computed from the state
//                                           in force.
// Messages (stderr, one line each; ORIGIN names the source, e.g. the file):
//   acl-agent: published ORIGIN, phase 1 of 2: N virtual IPs withdrawn
//   acl-agent: published ORIGIN: 3 interfaces, 2 VRFs, 4 IPv4 VIPs, 1 IPv6 VIPs[ (N changes)]
// where N counts the changes of both phases of a reload. Event-loop thread.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "agent/source/Publisher.h"

namespace Agent {

class PhasedPublisher {
 public:
  // Called with the origin each time a target is fully published.
  using Published = std::function<void(const std::string& origin)>;

  PhasedPublisher(Publisher& publisher, Published published)
      : publisher_(publisher), published_(std::move(published)) {}

  // `reload` false for a source's first model: its message carries no count.
  void targetIs(StateDocument next, const std::string& origin, bool reload);
  bool waiting() const { return waiting_.has_value(); }
  // Phase 2, or nothing when no target waits.
  void doPublishWaiting();
  const StateDocument& current() const { return publisher_.current(); }
  // Changes made by the last full publish (both phases of a reload).
  std::size_t lastChanges() const { return lastChanges_; }

 private:
  Publisher& publisher_;
  Published published_;
  std::optional<StateDocument> waiting_;
  std::string waitingOrigin_;
  bool waitingReload_ = false;
  std::size_t phaseOneChanges_ = 0;
  std::size_t lastChanges_ = 0;
};

// "3 interfaces, 2 VRFs, 4 IPv4 VIPs, 1 IPv6 VIPs".
std::string summary(const StateDocument& d);

}  // namespace Agent
