// What a plug-in's command line names: the namespace it runs in and the tool.
// Pure text work, for grouping lines and for counting them per tool.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

struct CommandLine {
  std::string ns;    // "default" without an "ip netns exec NS " prefix
  std::string tool;  // first word after the prefix: iptables, ip6tables, arptables...
  std::string rest;  // everything after the tool and one blank
};

// "ip netns exec blue iptables -t mangle ..." -> {blue, iptables, "-t mangle ..."}.
CommandLine commandLineOf(std::string_view line);

}  // namespace Agent
