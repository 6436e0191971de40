// The agent's own nftables tables, as text: pure builders of the commands
// that change them and pure readers of their JSON listing. Per namespace:
//
//   table ip acl-agent {                       (ip6: ipv6_addr, ipv6-icmp)
//     set accept_icmp { type ipv4_addr . ifname; }   one element per ACCEPT line
//     set drop_all    { type ipv4_addr . ifname; }   one element per DROP line
//     chain prerouting {
//       type filter hook prerouting priority mangle; policy accept;
//       ip protocol icmp ip daddr . iifname @accept_icmp counter accept
//       ip daddr . iifname @drop_all counter drop
//     }
//   }
//   table arp acl-agent {
//     chain output {
//       type filter hook output priority filter; policy accept;
//       arp operation request arp hlen 6 arp daddr ip SUBNET oifname "DEV"
//           arp saddr ether set MAC arp saddr ip set SRC   one rule per ARP line
//     }
//   }
//
// Nothing here names any other table. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/apply/nft/NftLine.h"

namespace Agent::Nft {

inline constexpr const char* kTable = "acl-agent";

// One transaction's commands. Each family it touches that is not known to
// be in place is made sure of first (table, sets and chain added if
// missing, the two fixed rules written afresh), so a table someone deleted
// comes back once a transaction has failed for it.
class Script {
 public:
  // Empties the family's table (made anew, whether it was there or not).
  // A script with a flush holds nothing else.
  void flushIs(Family f);
  // Adds or deletes one set element. A set's changes share one add and one
  // delete command per round: an element's n-th change goes in round n, so
  // changes of one element keep their order and others need not be
  // neighbours (the plug-in alternates the two sets line by line).
  void elementIs(const Change& c);
  // Returns the command's place, for arpRuleCancel.
  std::size_t arpRuleIs(const Change& c);
  // Takes an ARP add of this script back: an add and a delete of the same
  // rule in one transaction change nothing, and both succeed.
  void arpRuleCancel(std::size_t place) { body_.at(place).clear(); }
  void arpRuleDel(std::uint64_t handle);
  // Makes sure of the family's table (if not ready) without changing anything in it.
  void touch(Family f) { touched_.insert(f); }
  // The script; families in `ready` are taken as in place.
  std::string text(const std::set<Family>& ready = {}) const;
  const std::set<Family>& touched() const { return touched_; }

 private:
  std::set<Family> touched_, remade_;
  struct Round {
    std::vector<std::string> adds, deletes;
  };
  struct SetChanges {
    std::map<std::string, std::size_t> changesOf;  // element -> changes so far
    std::vector<Round> rounds;
  };
  std::map<std::string, SetChanges> sets_;  // by "family set"
  std::vector<std::string> body_;           // other commands; "" for one taken back
};

// An ARP rule's identity: the line's subnet (host bits cleared), device,
// source and MAC (lower case): "10.1.1.0/24 vlan10 10.1.1.1 02:...".
std::string arpKey(const Change& c);

struct ListedArpRule {
  std::string key;  // as arpKey
  std::uint64_t handle = 0;
  Change change;  // an add of the same rule (ns left empty)
};
// The rules of `list table arp acl-agent` (JSON, with handles) in chain
// order; rules of another shape are left out.
std::vector<ListedArpRule> arpRulesOf(const std::string& json);

// The elements of `list table ip|ip6 acl-agent` (JSON) as add changes: the
// accept set's first, then the drop set's (the chain's own order).
std::vector<Change> elementsOf(const std::string& json, Family f);

}  // namespace Agent::Nft
