#include "AclPlugin/sm/Reactors.h"

namespace Routing::Fhrp {

namespace {
// Backlog entries carry an address with mask; IPv6 keys take the full mask.
const VrfIpWithMaskPair& backlogKeyOf(const VrfIpWithMaskPair& key) {
  return key;
}
VrfIpWithMaskPair backlogKeyOf(const VrfIpPair& key) {
  return VrfIpWithMaskPair(L3::VrfName(key.vrfName().stringValue()),
                           Dravo::IpGenAddrWithMask(key.ipAddr()));
}
}  // namespace

template <class Key>
VirtualIpArpTablesSm::KivVipStatusT<Key>::KivVipStatusT(const Kiv::Ptr<const Input>& input,
                                                        VirtualIpArpTablesSm* sm)
    : SmReactor<typename Input::NotifieeConst>(sm) {
  notifierIs(input);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipStatusT<Key>::notifierIs(const Kiv::Ptr<const Input>& input) {
  if (input == this->notifier()) return;
  Kiv::NotifieeConstOf<Input>::notifierIs(input);
  if (!input) return;
  if (this->canHandle()) this->sm_->handleSweepOf(static_cast<const Key*>(nullptr));
  if (this->sm_) this->sm_->doIntfReactorUpkeep(input);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipStatusT<Key>::onVirtualIp(const Key& key) {
  if (this->canHandle()) this->sm_->handleVirtualIpOf(key);
  Kiv::Ptr<const Input> input = this->notifier();
  if (!input || !this->sm_) return;
  if (auto entry = input->virtualIp(key))
    this->sm_->doIntfReactorIs(Kiv::Ptr<const typename Input::IntfStatus>(entry));
  else
    this->sm_->doIntfReactorDel(key);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipStatusT<Key>::onVirtualIpkivImmediate() {
  if (this->canHandle()) this->sm_->handleSweepOf(static_cast<const Key*>(nullptr));
  Kiv::Ptr<const Input> input = this->notifier();
  if (input && this->sm_) this->sm_->doIntfReactorUpkeep(input);
}

template <class Key>
VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::KivVipIntfStatusT(const Kiv::Ptr<const Input>& input,
                                                                VirtualIpArpTablesSm* sm)
    : SmReactor<typename Input::NotifieeConst>(sm), key_(input->key()) {
  notifierIs(input);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::notifierIs(const Kiv::Ptr<const Input>& input) {
  if (input == this->notifier()) return;
  Kiv::NotifieeConstOf<Input>::notifierIs(input);
  if (input && this->canHandle()) handleIntfIdCol();
}

template <class Key>
void VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::onIntfIdSet(Dravo::IntfId intfId) {
  if (this->canHandle()) handleIntfIdCol(intfId);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::onIntfIdSetkivImmediate() {
  if (this->canHandle()) handleIntfIdCol();
}

template <class Key>
void VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::handleIntfIdCol(Dravo::IntfId intfId) {
  if (this->sm_) this->sm_->doWriteToBacklog(backlogKeyOf(key_), intfId);
}

template <class Key>
void VirtualIpArpTablesSm::KivVipIntfStatusT<Key>::handleIntfIdCol() {
  Kiv::Ptr<const Input> input = this->notifier();
  if (!input) return;
  for (auto it = input->intfIdSetIterator(); it; ++it) handleIntfIdCol(it.key());
}

template class VirtualIpArpTablesSm::KivVipStatusT<VrfIpWithMaskPair>;
template class VirtualIpArpTablesSm::KivVipStatusT<VrfIpPair>;
template class VirtualIpArpTablesSm::KivVipIntfStatusT<VrfIpWithMaskPair>;
template class VirtualIpArpTablesSm::KivVipIntfStatusT<VrfIpPair>;

VirtualIpArpTablesSm::KivVirtualRouterMacStatus::KivVirtualRouterMacStatus(
    const Kiv::Ptr<const VirtualRouterMacStatus>& input, VirtualIpArpTablesSm* sm)
    : SmReactor(sm) {
  notifierIs(input);
}

void VirtualIpArpTablesSm::KivVirtualRouterMacStatus::notifierIs(
    const Kiv::Ptr<const VirtualRouterMacStatus>& input) {
  if (input == notifier()) return;
  NotifieeConstOf::notifierIs(input);
  if (input && canHandle()) sm_->handleLumoVirtualMac();
}

void VirtualIpArpTablesSm::KivVirtualRouterMacStatus::onLumoVirtualMac() {
  if (canHandle()) sm_->handleLumoVirtualMac();
}

VirtualIpArpTablesSm::KivAllVrfStatusLocal::KivAllVrfStatusLocal(
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& input, VirtualIpArpTablesSm* sm)
    : SmReactor(sm) {
  notifierIs(input);
}

void VirtualIpArpTablesSm::KivAllVrfStatusLocal::onVrf(const L3::VrfName& name) {
  // Only teardown stops it: a removed VRF's records are forgotten even by a
  // state machine whose notifications are off.
  if (sm_ && !isDying()) sm_->handleVrfStatus(name);
}

VirtualIpArpTablesSm::KivVirtualIpTimerWheel::KivVirtualIpTimerWheel(
    const Kiv::Ptr<const Oru::TimerWheel>& wheel, VirtualIpArpTablesSm* sm)
    : SmReactor(sm) {
  notifierIs(wheel);
}

void VirtualIpArpTablesSm::KivVirtualIpTimerWheel::onTime() {
  // Only teardown stops the wheel; the backlog is drained whatever the
  // notification switch says.
  if (sm_ && !isDying()) sm_->handleVirtualIpTimerWheel();
}

}  // namespace Routing::Fhrp
