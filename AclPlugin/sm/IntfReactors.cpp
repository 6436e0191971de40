// The per-virtual-IP reactor collections, IPv4 and IPv6.
#include "AclPlugin/sm/Reactors.h"

namespace Routing::Fhrp {

template <class Key>
VirtualIpArpTablesSm::KivVipIntfStatusT<Key>* VirtualIpArpTablesSm::doIntfReactorIs(
    const Kiv::Ptr<const VirtualIpIntfStatusT<Key>>& input) {
  auto& reactors = intfReactors(static_cast<const Key*>(nullptr));
  KivVipIntfStatusT<Key>* r;
  if (auto* existing = reactors.find(input->key())) {
    r = existing->get();
    r->notifierIs(input);  // nothing when it already watches this entity
  } else {
    // Its construction attaches it and, when active, queues its interfaces.
    auto made = std::make_unique<KivVipIntfStatusT<Key>>(input, this);
    r = made.get();
    reactors.insert(input->key(), std::move(made));
  }
  r->hasNotificationActiveIs(notificationActive_);
  r->virtualIpArpTablesSmIs(this);
  return r;
}

template <class Key>
void VirtualIpArpTablesSm::doIntfReactorDel(const Key& key) {
  auto& reactors = intfReactors(static_cast<const Key*>(nullptr));
  if (auto* r = reactors.find(key)) (*r)->virtualIpArpTablesSmIs(nullptr);
  reactors.erase(key);
}

template <class Key>
void VirtualIpArpTablesSm::doIntfReactorUpkeep(const Kiv::Ptr<const VirtualIpStatusT<Key>>& input) {
  for (auto it = input->virtualIpIterator(); it; ++it)
    doIntfReactorIs(Kiv::Ptr<const VirtualIpIntfStatusT<Key>>(it.value()));
  auto& reactors = intfReactors(static_cast<const Key*>(nullptr));
  for (auto it = reactors.iterator(); it; ++it)
    if (!input->virtualIp(it.key())) doIntfReactorDel(Key(it.key()));
}

template void VirtualIpArpTablesSm::doIntfReactorUpkeep(
    const Kiv::Ptr<const VirtualIpStatusT<VrfIpWithMaskPair>>&);
template void VirtualIpArpTablesSm::doIntfReactorUpkeep(
    const Kiv::Ptr<const VirtualIpStatusT<VrfIpPair>>&);
template VirtualIpArpTablesSm::KivVirtualIpIntfStatus* VirtualIpArpTablesSm::doIntfReactorIs(
    const Kiv::Ptr<const VirtualIpIntfStatus>&);
template VirtualIpArpTablesSm::KivVirtualIp6IntfStatus* VirtualIpArpTablesSm::doIntfReactorIs(
    const Kiv::Ptr<const VirtualIp6IntfStatus>&);
template void VirtualIpArpTablesSm::doIntfReactorDel(const VrfIpWithMaskPair&);
template void VirtualIpArpTablesSm::doIntfReactorDel(const VrfIpPair&);

VirtualIpArpTablesSm::KivVirtualIpIntfStatus* VirtualIpArpTablesSm::virtualIpIntfStatus(
    const VrfIpWithMaskPair& key) const {
  auto* r = virtualIpIntfStatus_.find(key);
  return r ? r->get() : nullptr;
}

VirtualIpArpTablesSm::KivVirtualIp6IntfStatus* VirtualIpArpTablesSm::virtualIp6IntfStatus(
    const VrfIpPair& key) const {
  auto* r = virtualIp6IntfStatus_.find(key);
  return r ? r->get() : nullptr;
}

VirtualIpArpTablesSm::VirtualIpIntfStatusIterator
VirtualIpArpTablesSm::virtualIpIntfStatusIterator() const {
  return virtualIpIntfStatus_.iterator();
}

VirtualIpArpTablesSm::VirtualIp6IntfStatusIterator
VirtualIpArpTablesSm::virtualIp6IntfStatusIterator() const {
  return virtualIp6IntfStatus_.iterator();
}

VirtualIpArpTablesSm::KivVirtualIpIntfStatus* VirtualIpArpTablesSm::virtualIpIntfStatusIs(
    const Kiv::Ptr<const VirtualIpIntfStatus>& input) {
  if (!input)
    throw Kiv::RangeException(
        "null _virtualIpIntfStatus parameter to mutator for "
        "Routing::Fhrp::VirtualIpArpTablesSm::virtualIpIntfStatus not allowed\"");
  return doIntfReactorIs(input);
}

VirtualIpArpTablesSm::KivVirtualIp6IntfStatus* VirtualIpArpTablesSm::virtualIp6IntfStatusIs(
    const Kiv::Ptr<const VirtualIp6IntfStatus>& input) {
  if (!input)
    throw Kiv::RangeException(
        "null _virtualIp6IntfStatus parameter to mutator for "
        "Routing::Fhrp::VirtualIpArpTablesSm::virtualIp6IntfStatus not allowed\"");
  return doIntfReactorIs(input);
}

void VirtualIpArpTablesSm::virtualIpIntfStatusDel(const VrfIpWithMaskPair& key) {
  doIntfReactorDel(key);
}
void VirtualIpArpTablesSm::virtualIpIntfStatusDel(VirtualIpIntfStatusIterator& it) {
  if (it) doIntfReactorDel(VrfIpWithMaskPair(it.key()));
}
void VirtualIpArpTablesSm::virtualIpIntfStatusDelAll() {
  for (auto it = virtualIpIntfStatus_.iterator(); it; ++it) virtualIpIntfStatusDel(it);
}
void VirtualIpArpTablesSm::virtualIp6IntfStatusDel(const VrfIpPair& key) {
  doIntfReactorDel(key);
}
void VirtualIpArpTablesSm::virtualIp6IntfStatusDel(VirtualIp6IntfStatusIterator& it) {
  if (it) doIntfReactorDel(VrfIpPair(it.key()));
}
void VirtualIpArpTablesSm::virtualIp6IntfStatusDelAll() {
  for (auto it = virtualIp6IntfStatus_.iterator(); it; ++it) virtualIp6IntfStatusDel(it);
}

}  // namespace Routing::Fhrp
