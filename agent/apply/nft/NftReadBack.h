// verify's read-back in nft mode: the agent's own tables of a namespace,
// shown as the listings verify reads in the other modes, so one comparison
// serves every applier:
//   [ip netns exec NS ]iptables|ip6tables -t mangle -S PREROUTING
//       -> "-A PREROUTING -d IP/32 -i DEV -p icmp -m comment --comment "TAG" -j ACCEPT"
//          per accept element, then "... -p all ... -j DROP" per drop element
//          (the chain's fixed rules put every ACCEPT before every DROP);
//   [ip netns exec NS ]arptables -L OUT -n
//       -> "-A OUT -d SUBNET -o DEV -a 6 --arpop Request -j mangle --mangle-hw-s MAC
//           --mangle-ip-s SRC"
//          per ARP rule, in chain order.
// Nothing but the agent's own tables is listed. Event-loop thread only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/apply/nft/NftApplier.h"

namespace Agent::Nft {

// The listing `line` asks for, made from `changes` (one namespace's tables);
// nullopt for a line of another shape.
std::optional<std::string> listingOf(const std::string& line, const std::vector<Change>& changes);

// The listing from the kernel: whatever is pending is applied first, so the
// tables hold what the plug-in's records say; nullopt when the namespace
// cannot be entered or the line is of another shape.
std::optional<std::string> doReadBack(NftApplier& applier, const std::string& line);

// verify's commands in nft mode (see Control::VerifyInputs::command): the
// listings above, a numbered rule of one (`-S PREROUTING N`), and deletes of
// a listed rule (`-D PREROUTING N`, arptables `-D OUT WORDS`), applied to the
// agent's own tables as the plug-in's own delete line would be. A
// system()-style status; nothing ever reaches iptables or arptables.
int doCommand(NftApplier& applier, const std::string& ns, const std::vector<std::string>& argv,
              std::string* out);

}  // namespace Agent::Nft
