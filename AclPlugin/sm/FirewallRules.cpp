// The state machine's rule operations; the command lines are built and run
// in AclPlugin/firewall.
#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/IptablesRules.h"
#include "AclPlugin/sm/VirtualIpArpTablesSm.h"

namespace Routing::Fhrp {

void VirtualIpArpTablesSm::addIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip,
                                            Kiv::String8 dev) {
  Firewall::addIptablesRules(std::move(ns), ip, std::move(dev));
}
void VirtualIpArpTablesSm::dropIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip,
                                             Kiv::String8 dev) {
  Firewall::dropIptablesRules(std::move(ns), ip, std::move(dev));
}
void VirtualIpArpTablesSm::addIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip,
                                             Kiv::String8 dev) {
  Firewall::addIp6tablesRules(std::move(ns), ip, std::move(dev));
}
void VirtualIpArpTablesSm::dropIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip,
                                              Kiv::String8 dev) {
  Firewall::dropIp6tablesRules(std::move(ns), ip, std::move(dev));
}
void VirtualIpArpTablesSm::addArptablesRule(Dravo::NamespaceName ns,
                                            const Dravo::IpGenPrefix& subnet,
                                            const Dravo::IpGenAddr& srcIp, Kiv::String8 dev,
                                            const Dravo::EthAddr& mac) {
  Firewall::addArptablesRule(std::move(ns), subnet, srcIp, std::move(dev), mac);
}
void VirtualIpArpTablesSm::dropArptablesRule(Dravo::NamespaceName ns,
                                             const Dravo::IpGenPrefix& subnet,
                                             const Dravo::IpGenAddr& srcIp, Kiv::String8 dev,
                                             const Dravo::EthAddr& mac) {
  Firewall::dropArptablesRule(std::move(ns), subnet, srcIp, std::move(dev), mac);
}

}  // namespace Routing::Fhrp
