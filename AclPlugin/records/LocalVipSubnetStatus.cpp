#include "AclPlugin/records/LocalVipSubnetStatus.h"

namespace Routing::Fhrp {

Kiv::String8 LocalVipSubnetStatus::attributeString(Kiv::AttrId id) const {
  static const char* const names[] = {"intfSubnet", "intfDevName", "vrfName", "netNs",
                                      "vmac",       "srcIp",       "ipAddrs"};
  if (id < intfSubnetAttrId || id > ipAddrsAttrId) return "unknown";
  return names[id - intfSubnetAttrId];
}

bool LocalVipSubnetStatus::ipAddrs(const Dravo::IpGenAddr& addr) const {
  const bool* flag = ipAddrs_.find(addr);
  return flag && *flag;
}

void LocalVipSubnetStatus::vmacIs(const Dravo::EthAddr& vmac) {
  if (vmac == vmac_) return;
  vmac_ = vmac;
  notify<NotifieeConst>(vmacAttrId, [](NotifieeConst& n) { n.onVmac(); });
}

void LocalVipSubnetStatus::srcIpIs(const Dravo::IpGenAddr& srcIp) {
  if (srcIp == srcIp_) return;
  srcIp_ = srcIp;
  notify<NotifieeConst>(srcIpAttrId, [](NotifieeConst& n) { n.onSrcIp(); });
}

void LocalVipSubnetStatus::ipAddrsIs(const Dravo::IpGenAddr& addr, bool flag) {
  if (bool* current = ipAddrs_.find(addr)) {
    if (*current == flag) return;
    *current = flag;
  } else {
    newIpAddrs(addr, flag);
  }
  ipAddrsNotify(addr);
}

bool& LocalVipSubnetStatus::newIpAddrs(const Dravo::IpGenAddr& addr, bool flag) {
  auto [slot, inserted] = ipAddrs_.insert(addr, flag);
  if (!inserted) *slot = flag;
  return *slot;
}

bool LocalVipSubnetStatus::ipAddrsDel(const Dravo::IpGenAddr& addr) {
  const bool* current = ipAddrs_.find(addr);
  if (!current) return false;
  const bool flag = *current;
  ipAddrs_.erase(addr);
  ipAddrsNotify(addr);
  return flag;
}

bool LocalVipSubnetStatus::ipAddrsDel(IpAddrsIterator& it) {
  if (!it) return false;
  const Dravo::IpGenAddr addr = it.key();
  const bool flag = it.value();
  ipAddrs_.erase(it);
  ipAddrsNotify(addr);
  return flag;
}

void LocalVipSubnetStatus::ipAddrsDelAll() {
  for (IpAddrsIterator it = ipAddrs_.iterator(); it; ++it) ipAddrsDel(it);
}

void LocalVipSubnetStatus::ipAddrsNotify(const Dravo::IpGenAddr& addr) const {
  notify<NotifieeConst>(ipAddrsAttrId, [&](NotifieeConst& n) { n.onIpAddrs(addr); });
}

}  // namespace Routing::Fhrp
