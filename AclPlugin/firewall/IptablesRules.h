// The pair of mangle PREROUTING rules that guard one virtual IP on one
// interface: accept ICMP addressed to it, drop everything else addressed to
// it. Both carry the comment "KESTEL ADDED".
//
// The operations keep no state: callers decide when a pair is added or
// dropped and remember what is installed. A failed command is reported
// (FHRP_IPTABLES_ERROR, also for IPv6) and never retried or undone; the
// second command runs whatever the first returned. Agent thread only.
#pragma once

#include "AclPlugin/firewall/RuleVerb.h"
#include "platform/dravo/IpAddr.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/String8.h"

namespace Routing::Fhrp::Firewall {

// The comment that marks every rule of the plug-in.
inline constexpr char ruleComment[] = "KESTEL ADDED";

enum class Family { v4, v6 };
enum class Target { accept, drop };

// One rule's command line, e.g. for (blue, v4, add, accept, 10.0.0.1, vlan10):
//   ip netns exec blue iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i vlan10
//   -m comment --comment "KESTEL ADDED" -j ACCEPT
// The drop target matches "-p all"; a delete line ends in " 2>/dev/null".
Kiv::String8 iptablesRuleLine(const Dravo::NamespaceName& ns, Family family, Verb verb,
                              Target target, const Kiv::String8& address, const Kiv::String8& dev);

// Each runs the ACCEPT line, then the DROP line, in `ns`.
void addIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev);
void dropIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev);
void addIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev);
void dropIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev);

}  // namespace Routing::Fhrp::Firewall
