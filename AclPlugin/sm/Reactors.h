// The state machine's reactors: notifiees of the inputs that hand each
// change to a handler of the state machine. Every reactor holds a
// back-pointer to its state machine (virtualIpArpTablesSmIs; null once
// detached), follows the state machine's notification switch, and skips its
// handler once it is dying. Reactor upkeep after a virtual-IP change runs even
// when the reactor is inactive, so the per-virtual-IP reactors always match
// the input.
#pragma once

#include <concepts>

#include "AclPlugin/sm/VirtualIpArpTablesSm.h"

namespace Routing::Fhrp {

template <class Notifiee>
class SmReactor : public Notifiee {
 public:
  VirtualIpArpTablesSm* virtualIpArpTablesSm() const { return sm_; }
  void virtualIpArpTablesSmIs(VirtualIpArpTablesSm* sm) { sm_ = sm; }

 protected:
  explicit SmReactor(VirtualIpArpTablesSm* sm) : sm_(sm) {
    this->hasNotificationActiveIs(sm && sm->hasNotificationActive());
  }
  bool canHandle() const { return sm_ && this->isNotificationActive() && !this->isDying(); }

  VirtualIpArpTablesSm* sm_;
};

// Watches VirtualIpStatus (IPv4) or VirtualIp6Status (IPv6).
template <class Key>
class VirtualIpArpTablesSm::KivVipStatusT
    : public SmReactor<typename VirtualIpStatusT<Key>::NotifieeConst> {
 public:
  using Input = VirtualIpStatusT<Key>;
  KivVipStatusT(const Kiv::Ptr<const Input>& input, VirtualIpArpTablesSm* sm);
  // Attaching a new input sweeps it (when active) and makes its reactors.
  void notifierIs(const Kiv::Ptr<const Input>& input) override;
  void onVirtualIp(const Key& key) override;
  void onVirtualIpkivImmediate() override;
};

// Watches one virtual IP's entry and queues its interfaces.
template <class Key>
class VirtualIpArpTablesSm::KivVipIntfStatusT
    : public SmReactor<typename VirtualIpIntfStatusT<Key>::NotifieeConst> {
 public:
  using Input = VirtualIpIntfStatusT<Key>;
  KivVipIntfStatusT(const Kiv::Ptr<const Input>& input, VirtualIpArpTablesSm* sm);
  // Attaching a new entry queues all its interfaces (when active).
  void notifierIs(const Kiv::Ptr<const Input>& input) override;
  const Key& key() const { return key_; }
  const VrfIpWithMaskPair& vrfIpWithMask() const requires std::same_as<Key, VrfIpWithMaskPair> {
    return key_;
  }
  void onIntfIdSet(Dravo::IntfId intfId) override;
  void onIntfIdSetkivImmediate() override;
  // Queues the pair (this virtual IP, intfId); the backlog decides later
  // whether it is an addition or a removal.
  void handleIntfIdCol(Dravo::IntfId intfId);
  // Queues every interface of the entry, in the collection's order.
  void handleIntfIdCol();
  void handleIntfIdCol6(Dravo::IntfId intfId) requires std::same_as<Key, VrfIpPair> {
    handleIntfIdCol(intfId);
  }
  void handleIntfIdCol6() requires std::same_as<Key, VrfIpPair> { handleIntfIdCol(); }

 private:
  Key key_;
};

class VirtualIpArpTablesSm::KivVirtualRouterMacStatus
    : public SmReactor<VirtualRouterMacStatus::NotifieeConst> {
 public:
  KivVirtualRouterMacStatus(const Kiv::Ptr<const VirtualRouterMacStatus>& input,
                            VirtualIpArpTablesSm* sm);
  void notifierIs(const Kiv::Ptr<const VirtualRouterMacStatus>& input) override;
  void onLumoVirtualMac() override;
};

class VirtualIpArpTablesSm::KivAllVrfStatusLocal
    : public SmReactor<Ip::AllVrfStatusLocal::NotifieeConst> {
 public:
  KivAllVrfStatusLocal(const Kiv::Ptr<const Ip::AllVrfStatusLocal>& input,
                       VirtualIpArpTablesSm* sm);
  void onVrf(const L3::VrfName& name) override;
  // Deliberately nothing: a replaced VRF collection needs no clean-up here.
  void onVrfkivImmediate() override {}
};

class VirtualIpArpTablesSm::KivVirtualIpTimerWheel
    : public SmReactor<Oru::TimerWheel::NotifieeConst> {
 public:
  KivVirtualIpTimerWheel(const Kiv::Ptr<const Oru::TimerWheel>& wheel, VirtualIpArpTablesSm* sm);
  void onTime() override;
};

}  // namespace Routing::Fhrp
