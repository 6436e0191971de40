#include "AclPlugin/firewall/IptablesRules.h"

#include "AclPlugin/diagnostics/LogMessages.h"
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/firewall/CommandRunner.h"
#include "platform/dravo/IpGenAddr.h"

namespace Routing::Fhrp::Firewall {

namespace {

const char* toolName(Family f) {
  return f == Family::v4 ? "iptables" : "ip6tables";
}

// Runs one line; a failure (now, or when a batching applier applies the
// line) is reported with the pair's own words.
void doRunLine(const Kiv::String8& line, const Dravo::NamespaceName& ns, Family family, Verb verb,
               const Kiv::String8& address, const Kiv::String8& dev) {
  auto report = [ns, family, verb, address, dev] {
    doLogMessageIfNamespaceExists(ns, toolName(family), actionWord(verb), FHRP_IPTABLES_ERROR,
                                  failedRuleAddress(address.view()), dev);
  };
  if (runBashCmd(line.charPtr(), report) != 0) report();
}

// ACCEPT first: on adding it must stand ahead of the DROP rule. An add
// builds each line just before it runs; a drop builds both, then runs them.
void doRulePair(const Dravo::NamespaceName& ns, Family family, Verb verb,
                const Kiv::String8& address, const Kiv::String8& dev) {
  if (verb == Verb::add) {
    for (Target target : {Target::accept, Target::drop})
      doRunLine(iptablesRuleLine(ns, family, verb, target, address, dev), ns, family, verb, address,
                dev);
    return;
  }
  const Kiv::String8 lines[] = {iptablesRuleLine(ns, family, verb, Target::accept, address, dev),
                                iptablesRuleLine(ns, family, verb, Target::drop, address, dev)};
  for (const Kiv::String8& line : lines) doRunLine(line, ns, family, verb, address, dev);
}

}  // namespace

Kiv::String8 iptablesRuleLine(const Dravo::NamespaceName& ns, Family family, Verb verb,
                              Target target, const Kiv::String8& address, const Kiv::String8& dev) {
  const char* icmp = family == Family::v4 ? "icmp" : "ipv6-icmp";
  const bool accept = target == Target::accept;
  return namespacePrefix(ns) + toolName(family) + " -t mangle " + verbFlag(verb) +
         " PREROUTING -p " + (accept ? icmp : "all") + " -d " + address + " -i " + dev +
         " -m comment --comment \"" + ruleComment + "\" -j " + (accept ? "ACCEPT" : "DROP") +
         verbTail(verb);
}

void addIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::addIptablesRules(Dravo::NamespaceName, "
             "Dravo::IpAddr, Kiv::String)");
  FHRP_TRACE(
      5, "Adding iptables rules for " << ip << " on interface " << dev << " on namespace " << ns);
  doRulePair(ns, Family::v4, Verb::add, ip.stringValue(), dev);
}

void dropIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::dropIptablesRules(Dravo::NamespaceName, "
             "Dravo::IpAddr, Kiv::String)");
  FHRP_TRACE(
      5, "Dropping iptables rules for " << ip << " on interface " << dev << " on namespace " << ns);
  doRulePair(ns, Family::v4, Verb::drop, ip.stringValue(), dev);
}

void addIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::addIp6tablesRules(Dravo::NamespaceName, "
             "const Dravo::Ip6Addr&, Kiv::String)");
  FHRP_TRACE(
      5, "Adding ip6tables rules for " << ip << " on interface " << dev << " on namespace " << ns);
  doRulePair(ns, Family::v6, Verb::add, ip.stringValue(), dev);
}

void dropIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::dropIp6tablesRules(Dravo::NamespaceName, "
             "const Dravo::Ip6Addr&, Kiv::String)");
  FHRP_TRACE(5, "Dropping ip6tables rules for " << ip << " on interface " << dev << " on namespace "
                                                << ns);
  doRulePair(ns, Family::v6, Verb::drop, ip.stringValue(), dev);
}

}  // namespace Routing::Fhrp::Firewall
