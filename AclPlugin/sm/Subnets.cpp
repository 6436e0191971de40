// Virtual-router subnets: for each (interface, subnet) holding IPv4 virtual
// IPs, one arptables rule that sends ARP requests into the subnet with one of
// its virtual IPs and the virtual router MAC as source. The record says which
// rule is installed; the rule changes only when its source goes or the MAC
// changes.
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/sm/Reactors.h"

namespace Routing::Fhrp {

namespace {
Dravo::EthAddr currentMac(const Kiv::Ptr<const VirtualRouterMacStatus>& status) {
  return status ? status->lumoVirtualMac() : Dravo::EthAddr();
}
}  // namespace

void VirtualIpArpTablesSm::doAddVirtualIpSubnet(const VrfIpWithMaskPair& vrfIpWithMask,
                                                const IntfSubnetPair& intfSubnet) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doAddVirtualIpSubnet(const "
             "Routing::Fhrp::VrfIpWithMaskPair&, const Routing::Fhrp::IntfSubnetPair&)");
  const Dravo::IntfId& intfId = intfSubnet.intfId();
  const Dravo::IpGenPrefix& subnet = intfSubnet.subnet();
  Kiv::Ptr<const Interface::IntfStatus> intf = allIntf_ ? allIntf_->intfStatus(intfId) : nullptr;
  if (!intf) {
    FHRP_TRACE(7, "IntfStatus " << intfId << " does not exist!");
    return;
  }
  const Dravo::IpGenAddr& vip = vrfIpWithMask.ipWithMask().address();
  const Dravo::EthAddr mac = currentMac(virtualRouterMacStatus());
  const Dravo::NamespaceName ns = inputNetNs(vrfIpWithMask);
  const Kiv::String8& dev = intf->deviceName();

  Kiv::Ptr<LocalVipSubnetStatus> record = localVipSubnet(intfSubnet);
  if (record && record->vmac() != mac) {
    FHRP_TRACE(4, "Virtual mac changed for " << subnet << " on interface " << intfId);
    dropArptablesRule(ns, subnet, record->srcIp(), dev, record->vmac());
    // The virtual IP being added becomes the source, not the previous one.
    addArptablesRule(ns, subnet, vip, dev, mac);
    record->vmacIs(mac);
    record->srcIpIs(vip);
  } else if (!record) {
    addArptablesRule(ns, subnet, vip, dev, mac);
    FHRP_TRACE(4, "Adding to LocalVipSubnetStatus with " << subnet << " on interface " << intfId);
    record = localVipSubnetIs(intfSubnet, dev, vrfIpWithMask.vrfName(), ns);
    record->vmacIs(mac);
    record->srcIpIs(vip);
  }
  FHRP_TRACE(4, "Adding " << vip << " to " << subnet << " on interface " << intfId
                          << " in LocalVipSubnetStatus");
  record->ipAddrsIs(vip, true);
}

void VirtualIpArpTablesSm::doDeleteVirtualIpSubnet(const Dravo::IpGenAddr& ip,
                                                   const IntfSubnetPair& intfSubnet) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doDeleteVirtualIpSubnet(const "
             "Dravo::IpGenAddr&, const Routing::Fhrp::IntfSubnetPair&)");
  Kiv::Ptr<LocalVipSubnetStatus> record = localVipSubnet(intfSubnet);
  if (!record || !record->ipAddrs(ip)) return;
  record->ipAddrsDel(ip);
  // The rule keeps its source while that is still a member.
  if (ip != record->srcIp()) return;
  const Dravo::IntfId& intfId = intfSubnet.intfId();
  const Dravo::IpGenPrefix& subnet = intfSubnet.subnet();
  dropArptablesRule(record->netNs(), subnet, ip, record->intfDevName(), record->vmac());
  if (record->ipAddrsSize() == 0) {
    FHRP_TRACE(4, "No more IPs in the same subnet, so deleting "
                      << subnet << " with interface " << intfId << " from LocalVipSubnetStatus");
    localVipSubnetDel(intfSubnet);
    return;
  }
  // No preference among the rest: the first the collection yields.
  const Dravo::IpGenAddr next = record->ipAddrsIterator().key();
  const Dravo::EthAddr mac = currentMac(virtualRouterMacStatus());
  addArptablesRule(record->netNs(), subnet, next, record->intfDevName(), mac);
  FHRP_TRACE(4, "Switching " << ip << " to " << next << " for " << subnet << " on " << intfId
                             << " in LocalVipSubnetStatus");
  record->srcIpIs(next);
  record->vmacIs(mac);
}

}  // namespace Routing::Fhrp
