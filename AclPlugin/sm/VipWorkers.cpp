// Installing and removing one virtual IP's rules on one interface.
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/sm/Reactors.h"

namespace Routing::Fhrp {

Dravo::NamespaceName VirtualIpArpTablesSm::inputNetNs(const VrfIpWithMaskPair& key) const {
  KivVirtualIpIntfStatus* r = Kiv::validPtr(virtualIpIntfStatus(key));
  return Kiv::validPtr(r->notifier())->netNs();
}

Dravo::NamespaceName VirtualIpArpTablesSm::inputNetNs(const VrfIpPair& key) const {
  KivVirtualIp6IntfStatus* r = Kiv::validPtr(virtualIp6IntfStatus(key));
  return Kiv::validPtr(r->notifier())->netNs();
}

template <class Key>
void VirtualIpArpTablesSm::doAddVipIntf(const char* function, const Key& key,
                                        const VrfIpPair& vrfIp, Dravo::IntfId intfId,
                                        const Kiv::String8& shownAddr) {
  Kiv::Ptr<LocalVipStatus> local = localVip(vrfIp);
  if (local && local->intfIdSetHas(intfId)) return;
  Kiv::Ptr<const Interface::IntfStatus> intf = allIntf_ ? allIntf_->intfStatus(intfId) : nullptr;
  if (!intf) {
    FHRP_TRACE_IN(function, 7, "IntfStatus " << intfId << " does not exist!");
    return;
  }
  const Kiv::String8& dev = intf->deviceName();
  const Dravo::NamespaceName netNs = inputNetNs(key);
  const Dravo::IpGenAddr& addr = vrfIp.ipAddr();
  // The IPv6 worker traces before its command, the IPv4 one after: kept so.
  if (addr.isV6()) {
    FHRP_TRACE_IN(function, 4,
                  "Adding interface " << intfId << " to LocalVipStatus with " << shownAddr
                                      << " on vrf " << vrfIp.vrfName());
    addIp6tablesRules(netNs, addr.v6Addr(), dev);
  } else {
    addIptablesRules(netNs, addr.v4Addr(), dev);
    FHRP_TRACE_IN(function, 4,
                  "Adding interface " << intfId << " to LocalVipStatus with " << shownAddr
                                      << " on vrf " << vrfIp.vrfName());
  }
  // Recorded even when the command failed: the failure was logged, and the
  // record is what lets a later removal try again.
  Kiv::validPtr(local)->intfIdSetIs(intfId, dev);
}

void VirtualIpArpTablesSm::doDeleteVipIntf(const char* function, const VrfIpPair& vrfIp,
                                           Dravo::IntfId intfId) {
  Kiv::Ptr<LocalVipStatus> local = localVip(vrfIp);
  if (!local || !local->intfIdSetHas(intfId)) return;
  const Kiv::String8 dev = local->intfIdSet(intfId);
  const Dravo::IpGenAddr& addr = vrfIp.ipAddr();
  FHRP_TRACE_IN(function, 4,
                "Deleting interface " << intfId << " from LocalVipStatus with " << addr
                                      << " on vrf " << vrfIp.vrfName());
  // The namespace recorded at install time, not the VRF's current one.
  if (addr.isV6())
    dropIp6tablesRules(local->netNs(), addr.v6Addr(), dev);
  else
    dropIptablesRules(local->netNs(), addr.v4Addr(), dev);
  // The record stays even when empty; its caller removes it.
  local->intfIdSetDel(intfId);
}

void VirtualIpArpTablesSm::doAddVirtualIpForIntfId(const VrfIpWithMaskPair& vrfIpWithMask,
                                                   Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doAddVirtualIpForIntfId(const "
             "Routing::Fhrp::VrfIpWithMaskPair&, Dravo::IntfId)");
  doAddVipIntf("doAddVirtualIpForIntfId", vrfIpWithMask, vrfIpWithMask.vrfIp(), intfId,
               vrfIpWithMask.ipWithMask().stringValue());
}

void VirtualIpArpTablesSm::doDeleteVirtualIpForIntfId(const VrfIpPair& vrfIp,
                                                      Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doDeleteVirtualIpForIntfId(const "
             "Routing::Fhrp::VrfIpPair&, Dravo::IntfId)");
  doDeleteVipIntf("doDeleteVirtualIpForIntfId", vrfIp, intfId);
}

void VirtualIpArpTablesSm::doAddVirtualIp6ForIntfId(const VrfIpPair& vrfIp, Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doAddVirtualIp6ForIntfId(const "
             "Routing::Fhrp::VrfIpPair&, Dravo::IntfId)");
  doAddVipIntf("doAddVirtualIp6ForIntfId", vrfIp, vrfIp, intfId, vrfIp.ipAddr().stringValue());
}

void VirtualIpArpTablesSm::doDeleteVirtualIp6ForIntfId(const VrfIpPair& vrfIp,
                                                       Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doDeleteVirtualIp6ForIntfId(const "
             "Routing::Fhrp::VrfIpPair&, Dravo::IntfId)");
  doDeleteVipIntf("doDeleteVirtualIp6ForIntfId", vrfIp, intfId);
}

}  // namespace Routing::Fhrp
