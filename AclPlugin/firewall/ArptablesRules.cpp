#include "AclPlugin/firewall/ArptablesRules.h"

#include <cstdio>

#include "AclPlugin/diagnostics/LogMessages.h"
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/firewall/CommandRunner.h"

namespace Routing::Fhrp::Firewall {

namespace {

// The logged address is formed from "<source IP>/<subnet length>", read as
// an address by the all-zero IPv6 value's initialise-from-text.
Dravo::IpGenAddr logAddress(const Dravo::IpGenPrefix& subnet, const Dravo::IpGenAddr& srcIp) {
  char text[64];
  std::snprintf(text, sizeof text, "%s/%u", srcIp.stringValue().charPtr(), subnet.length());
  return failedRuleAddress(text);
}

void doRule(const Dravo::NamespaceName& ns, Verb verb, const Dravo::IpGenPrefix& subnet,
            const Dravo::IpGenAddr& srcIp, const Kiv::String8& dev, const Dravo::EthAddr& mac) {
  const Kiv::String8 line = arptablesRuleLine(ns, verb, subnet, srcIp, dev, mac);
  // Reported now, or when a batching applier applies the line.
  auto report = [ns, verb, subnet, srcIp, dev] {
    doLogMessageIfNamespaceExists(ns, "arptables", actionWord(verb), FHRP_ARPTABLES_ERROR,
                                  logAddress(subnet, srcIp), dev);
  };
  if (runBashCmd(line.charPtr(), report) != 0) report();
}

}  // namespace

Kiv::String8 arptablesRuleLine(const Dravo::NamespaceName& ns, Verb verb,
                               const Dravo::IpGenPrefix& subnet, const Dravo::IpGenAddr& srcIp,
                               const Kiv::String8& dev, const Dravo::EthAddr& mac) {
  return namespacePrefix(ns) + "arptables " + verbFlag(verb) + " OUT -d " + subnet.stringValue() +
         " -o " + dev + " -a 6 --arpop Request -j mangle " + "--mangle-hw-s " + mac.stringValue() +
         " --mangle-ip-s " + srcIp.stringValue() + verbTail(verb);
}

void addArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                      const Dravo::IpGenAddr& srcIp, Kiv::String8 dev, const Dravo::EthAddr& mac) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::addArptablesRule(Dravo::NamespaceName, "
             "const Dravo::IpGenPrefix&, const Dravo::IpGenAddr&, Kiv::String, const "
             "Dravo::EthAddr&)");
  FHRP_TRACE(5, "Adding arptables rules for " << srcIp << " with subnet " << subnet
                                              << " on interface " << dev << " on namespace " << ns
                                              << " using mac " << mac);
  doRule(ns, Verb::add, subnet, srcIp, dev, mac);
}

void dropArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                       const Dravo::IpGenAddr& srcIp, Kiv::String8 dev, const Dravo::EthAddr& mac) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::dropArptablesRule(Dravo::NamespaceName, "
             "const Dravo::IpGenPrefix&, const Dravo::IpGenAddr&, Kiv::String, const "
             "Dravo::EthAddr&)");
  FHRP_TRACE(5, "Dropping arptables rules for " << srcIp << " with subnet " << subnet
                                                << " on interface " << dev << " on namespace " << ns
                                                << " using mac " << mac);
  doRule(ns, Verb::drop, subnet, srcIp, dev, mac);
}

}  // namespace Routing::Fhrp::Firewall
