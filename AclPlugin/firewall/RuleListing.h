// The plug-in's rules read back from the kernel's listings, and the one text
// (a key) by which a listed rule is compared with a rule the plug-in writes.
//
// A key is the whole rule in a fixed order with each value in one canonical
// form, so that the plug-in's own add line and the tool's listing of the rule
// it made give the same key:
//   iptables   -d 10.0.0.1/32 -i vlan10 -p icmp -m comment --comment "KESTEL ADDED" -j ACCEPT
//              (addresses with their length, "-p all" left out, as `-S` lists)
//   arptables  -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle
//              --mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1
//              (the plug-in's dialect; stock listings' --opcode 1, --mangle-mac-s,
//              a missing length (always 6) and dotted masks read the same)
//
// Nothing read from a listing reaches a command unless it passed the check
// for its field (addresses parse with their length, interface names as the
// kernel takes them and without anything a listing shows ambiguously).
// iptables rules are named by position, checked again just before the delete;
// arptables rules by all their words (every match and target option) in the
// plug-in's dialect.
// Pure functions; never throw.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/acl/PluginView.h"

namespace Routing::Fhrp::Firewall {

// "iptables", "ip6tables" or "arptables"; the listing command of its chain:
//   iptables -t mangle -S PREROUTING   (ip6tables alike)
//   arptables -L OUT -n
std::vector<std::string> listingArgv(std::string_view tool);

// The tagged iptables/ip6tables rules and the arptables mangle rules of a
// listing (stock or the plug-in's dialect), in listed order.
std::vector<Acl::ListedRule> listedRules(std::string_view tool, std::string_view listing);

// The key of the rule a plug-in command line (add or delete, any namespace)
// writes; "" when the line is not one of the plug-in's rule lines.
std::string ruleKeyOfLine(std::string_view line);

// What the kernel accepts as an interface name, less what a listing cannot
// show unambiguously: 1-15 printable ASCII bytes, no blank, '/', ':', quote
// or backslash, not "." or "..", not starting with '-' or '!'.
bool interfaceNameOk(std::string_view name);

}  // namespace Routing::Fhrp::Firewall
