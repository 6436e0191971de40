// VRF namespace tracking: forgetting a removed VRF's records, and whether a
// VRF's namespace may be used.
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/sm/VirtualIpArpTablesSm.h"

namespace Routing::Fhrp {

namespace {
Kiv::Ptr<const Ip::VrfStatusLocal> vrfEntry(const Kiv::Ptr<const Ip::AllVrfStatusLocal>& all,
                                            const L3::VrfName& name) {
  return all ? all->vrf(name) : nullptr;
}
}  // namespace

void VirtualIpArpTablesSm::handleVrfStatus(L3::VrfName vrfName) {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleVrfStatus(L3::VrfName)");
  // An added or changed VRF gets its rules through the virtual-IP inputs.
  if (vrfEntry(allVrfStatusLocal(), vrfName)) return;
  FHRP_TRACE(4, "Vrf " << vrfName << " is being deleted, cleaning up local state.");
  // No command: the rules went away with the VRF's namespace.
  for (auto it = localVipIterator(); it; ++it)
    if (it.key().vrfName() == vrfName) localVipDel(it);
  for (auto it = localVipSubnetIterator(); it; ++it)
    if (it.value()->vrfName() == vrfName) localVipSubnetDel(it);
}

bool VirtualIpArpTablesSm::doesNetNsExistsForVrf(L3::VrfName vrfName) {
  FHRP_TRACE(8, "bool Routing::Fhrp::VirtualIpArpTablesSm::doesNetNsExistsForVrf(L3::VrfName)");
  return netNsUsable(vrfName);
}

bool VirtualIpArpTablesSm::netNsUsable(const L3::VrfName& vrfName) const {
  Kiv::Ptr<const Ip::VrfStatusLocal> vrf = vrfEntry(allVrfStatusLocal(), vrfName);
  if (vrfName == L3::DEFAULT_VRF) return true;
  // Trusts the VRF status; the kernel is not probed.
  return vrf && vrf->state() != Ip::VrfState::deleting;
}

}  // namespace Routing::Fhrp
