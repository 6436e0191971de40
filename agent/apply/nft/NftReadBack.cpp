#include "agent/apply/nft/NftReadBack.h"

#include "platform/dravo/NamespaceExec.h"

namespace Agent::Nft {

namespace {

const char* kComment = "\"KESTEL ADDED\"";

}  // namespace

std::optional<std::string> listingOf(const std::string& line, const std::vector<Change>& changes) {
  const std::string_view cmd = Dravo::namespacedCommandOf(line).command;
  std::optional<Family> family;
  if (cmd == "iptables -t mangle -S PREROUTING") family = Family::ip;
  if (cmd == "ip6tables -t mangle -S PREROUTING") family = Family::ip6;
  if (cmd == "arptables -L OUT -n") family = Family::arp;
  if (!family) return std::nullopt;
  std::string out;
  for (const Change& c : changes) {
    if (c.family != *family) continue;
    if (c.family == Family::arp) {
      out += "-A OUT -j mangle -d " + c.subnet + " -o " + c.dev + " --mangle-hw-s " + c.mac +
             " --mangle-ip-s " + c.address + "\n";
      continue;
    }
    const bool v4 = c.family == Family::ip;
    const bool accept = c.verdict == Verdict::accept;
    out += "-A PREROUTING -d " + c.address + (v4 ? "/32" : "/128") + " -i " + c.dev + " -p " +
           (accept ? (v4 ? "icmp" : "ipv6-icmp") : "all") + " -m comment --comment " + kComment +
           " -j " + (accept ? "ACCEPT" : "DROP") + "\n";
  }
  return out;
}

std::optional<std::string> doReadBack(NftApplier& applier, const std::string& line) {
  applier.doApplyAll();
  const std::string ns = Dravo::namespacedCommandOf(line).ns.stringValue().stdString();
  const std::optional<std::vector<Change>> changes = applier.tablesOf(ns);
  if (!changes) return std::nullopt;
  return listingOf(line, *changes);
}

}  // namespace Agent::Nft
