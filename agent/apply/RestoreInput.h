// Pure text work for batching: which rule lines an iptables-restore can take,
// and the restore input that applies a run of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

struct RestoreRule {
  std::string table;  // "mangle"
  std::string rule;   // "-A PREROUTING ..." as a restore line
};

// The rule of "[ip netns exec NS ]iptables|ip6tables -t TABLE -A|-D CHAIN ...[ 2>/dev/null]";
// nothing for any other tool or form, or for a line the shell would read as
// more than words and double quotes (such a line is run as it is).
std::optional<RestoreRule> restoreRuleOf(std::string_view line);

// "*TABLE\n<rule>\n...COMMIT\n" for rules of one table, in order.
std::string restoreInputOf(const std::string& table, const std::vector<std::string>& rules);

}  // namespace Agent
