// What a plug-in line means for the agent's own nftables tables: a pure
// reading of the few shapes the plug-in writes, and nothing else.
//
//   [ip netns exec NS ]iptables -t mangle -A|-D PREROUTING -p icmp -d IP -i DEV
//       -m comment --comment "KESTEL ADDED" -j ACCEPT[ 2>/dev/null]
//   ... -p all ... -j DROP                      (ip6tables: -p ipv6-icmp for ACCEPT)
//   [ip netns exec NS ]arptables -A|-D OUT -d SUBNET -o DEV -a 6 --arpop Request
//       -j mangle --mangle-hw-s MAC --mangle-ip-s SRC[ 2>/dev/null]
//   [ip netns exec NS ]iptables|ip6tables -t mangle -F PREROUTING
//   [ip netns exec NS ]arptables -F OUT
//
// Every word that reaches an nft command is checked here (addresses parsed,
// device names within the kernel's limits and characters), so what the
// script builder pastes can never be read as more than one value. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Agent::Nft {

enum class Family { ip, ip6, arp };
enum class Op { add, del, flush };
enum class Verdict { accept, drop };

struct Change {
  std::string ns;  // "default" without a prefix
  Family family = Family::ip;
  Op op = Op::add;
  // ip, ip6: one element of the accept or drop set.
  Verdict verdict = Verdict::accept;
  std::string address;  // ip, ip6: the virtual IP; arp: the source IP
  std::string dev;
  // arp: the rest of the rule.
  std::string subnet, mac;

  bool operator==(const Change&) const = default;
};

// The change a line asks for; nullopt for any line of another shape.
std::optional<Change> changeOf(std::string_view line);

// The table of a family: "ip", "ip6", "arp".
const char* familyName(Family f);

}  // namespace Agent::Nft
