// The records of installed rules; the collections' rules live with the records.
#include "AclPlugin/sm/VirtualIpArpTablesSm.h"

namespace Routing::Fhrp {

Kiv::Ptr<LocalVipStatus> VirtualIpArpTablesSm::localVip(const VrfIpPair& key) const {
  return Routing::Fhrp::localVip(localVip_, key);
}
Kiv::Ptr<LocalVipStatus> VirtualIpArpTablesSm::localVipIs(const VrfIpPair& key,
                                                          Dravo::NamespaceName netNs) {
  return Routing::Fhrp::localVipIs(localVip_, key, std::move(netNs));
}
Kiv::Ptr<LocalVipStatus> VirtualIpArpTablesSm::newLocalVip(const VrfIpPair& key,
                                                           Dravo::NamespaceName netNs) {
  return Routing::Fhrp::newLocalVip(localVip_, key, std::move(netNs));
}
void VirtualIpArpTablesSm::localVipDel(const VrfIpPair& key) {
  Routing::Fhrp::localVipDel(localVip_, key);
}
void VirtualIpArpTablesSm::localVipDel(LocalVipIterator& it) {
  Routing::Fhrp::localVipDel(localVip_, it);
}
void VirtualIpArpTablesSm::localVipDelAll() {
  Routing::Fhrp::localVipDelAll(localVip_);
}

Kiv::Ptr<LocalVipSubnetStatus> VirtualIpArpTablesSm::localVipSubnet(
    const IntfSubnetPair& key) const {
  return Routing::Fhrp::localVipSubnet(localVipSubnet_, key);
}
Kiv::Ptr<LocalVipSubnetStatus> VirtualIpArpTablesSm::localVipSubnetIs(const IntfSubnetPair& key,
                                                                      Kiv::String8 intfDevName,
                                                                      L3::VrfName vrfName,
                                                                      Dravo::NamespaceName netNs) {
  return Routing::Fhrp::localVipSubnetIs(localVipSubnet_, key, std::move(intfDevName),
                                         std::move(vrfName), std::move(netNs));
}
Kiv::Ptr<LocalVipSubnetStatus> VirtualIpArpTablesSm::newLocalVipSubnet(const IntfSubnetPair& key,
                                                                       Kiv::String8 intfDevName,
                                                                       L3::VrfName vrfName,
                                                                       Dravo::NamespaceName netNs) {
  return Routing::Fhrp::newLocalVipSubnet(localVipSubnet_, key, std::move(intfDevName),
                                          std::move(vrfName), std::move(netNs));
}
void VirtualIpArpTablesSm::localVipSubnetDel(const IntfSubnetPair& key) {
  Routing::Fhrp::localVipSubnetDel(localVipSubnet_, key);
}
void VirtualIpArpTablesSm::localVipSubnetDel(LocalVipSubnetIterator& it) {
  Routing::Fhrp::localVipSubnetDel(localVipSubnet_, it);
}
void VirtualIpArpTablesSm::localVipSubnetDelAll() {
  Routing::Fhrp::localVipSubnetDelAll(localVipSubnet_);
}

}  // namespace Routing::Fhrp
