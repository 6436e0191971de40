// The arptables OUT rule of one (interface, subnet) pair: outgoing ARP
// requests for an address in the subnet carry the source IP and the
// virtual MAC as sender. A rule is deleted only by repeating exactly what
// added it.
//
// The operations keep no state: callers decide when a rule is added,
// dropped or replaced. A failed command is reported (FHRP_ARPTABLES_ERROR)
// and never retried or undone. Agent thread only.
#pragma once

#include "AclPlugin/firewall/RuleVerb.h"
#include "platform/dravo/EthAddr.h"
#include "platform/dravo/IpGenAddr.h"
#include "platform/dravo/IpGenPrefix.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/String8.h"

namespace Routing::Fhrp::Firewall {

// The rule's command line, e.g. for (default, add, 10.1.1.0/24, 10.1.1.1, vlan10, mac):
//   arptables -A OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle
//   --mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1
// A delete line ends in " 2>/dev/null".
Kiv::String8 arptablesRuleLine(const Dravo::NamespaceName& ns, Verb verb,
                               const Dravo::IpGenPrefix& subnet, const Dravo::IpGenAddr& srcIp,
                               const Kiv::String8& dev, const Dravo::EthAddr& mac);

void addArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                      const Dravo::IpGenAddr& srcIp, Kiv::String8 dev, const Dravo::EthAddr& mac);
void dropArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                       const Dravo::IpGenAddr& srcIp, Kiv::String8 dev, const Dravo::EthAddr& mac);

}  // namespace Routing::Fhrp::Firewall
