// Publishes a state document as the plug-in's five input entities, the way
// their own agents would: the entities are made once and put into the state
// database at their mount paths, and each document after the first is
// applied as the per-key mutations that turn the current document into it.
// A mutation that changes nothing notifies nobody, so publishing the same
// document again is silent.
//
// Order of the mutations within one publish, so that no observer, at any
// notification, sees a virtual IP whose interface or VRF is not published:
//   1. interfaces added or given a new device name;
//   2. VRFs added or changed (state, namespace);
//   3. the virtual router MACs;
//   4. virtual IPs removed (IPv4, then IPv6);
//   5. virtual IPs added or changed (IPv4, then IPv6): a new entry is made
//      (one onVirtualIp), then its namespace is set, interfaces leave its
//      set, then interfaces join it (one onIntfIdSet each);
//   6. VRFs removed;
//   7. interfaces removed.
//
// Single-threaded: call on the event-loop thread.
//
// A reload that withdraws virtual IPs goes in two phases (the agent drives
// them; reloadPhaseOne computes the first). The plug-in decides each queued
// (virtual IP, interface) pair later, at a tick of its timer wheel, from the
// inputs as they then stand; it keeps one record per VRF and address
// (without the mask) and forgets a VRF's records as soon as the VRF goes.
// In one step, a virtual IP whose mask or namespace changes, or that goes
// with its VRF, would keep rules it should lose or lose rules it should
// keep, by the order of the decisions. Hence:
//   phase 1: the document in force less every virtual IP that the new one
//     drops, moves to another namespace or (IPv4) gives another mask;
//     everything else stays as in force;
//   phase 2, once the plug-in has drained its backlog: the new document.
#pragma once

#include <cstddef>
#include <optional>

#include "agent/source/StateDocument.h"
#include "platform/interface/IntfStatus.h"
#include "platform/ip/VrfStatus.h"
#include "platform/mirel/EntityManager.h"
#include "platform/routing/VirtualIpStatus.h"
#include "platform/routing/VirtualRouterMacStatus.h"

namespace Agent {

// Phase 1 of the reload from `current` to `next` (see above); nothing when
// it would equal `current`, so that `next` can be published at once.
std::optional<StateDocument> reloadPhaseOne(const StateDocument& current,
                                            const StateDocument& next);

class Publisher {
 public:
  // Puts the five (empty) entities into `em`:
  //   "routing/fhrp/virtualIpStatus", "routing6/fhrp/virtualIpStatus",
  //   "routing/fhrp/vrMacStatus", "interface/status/all",
  //   Cell::path("ip/vrf/status/local", 0).
  explicit Publisher(Kiv::Ptr<Mirel::EntityManager> em);

  // Makes the entities describe `next`; returns the number of mutations made
  // (each one a real change). `next` must come from parseStateDocument, whose
  // checks guarantee that no mutation throws.
  std::size_t publish(const StateDocument& next);
  const StateDocument& current() const { return current_; }

  Kiv::Ptr<const Routing::Fhrp::VirtualIpStatus> virtualIpStatus() const { return vip_; }
  Kiv::Ptr<const Routing::Fhrp::VirtualIp6Status> virtualIp6Status() const { return vip6_; }
  Kiv::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> virtualRouterMacStatus() const {
    return mac_;
  }
  Kiv::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir() const { return intf_; }
  Kiv::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal() const { return vrf_; }

 private:
  Kiv::Ptr<Routing::Fhrp::VirtualIpStatus> vip_;
  Kiv::Ptr<Routing::Fhrp::VirtualIp6Status> vip6_;
  Kiv::Ptr<Routing::Fhrp::VirtualRouterMacStatus> mac_;
  Kiv::Ptr<Interface::AllIntfStatusDir> intf_;
  Kiv::Ptr<Ip::AllVrfStatusLocal> vrf_;
  StateDocument current_;
};

}  // namespace Agent
