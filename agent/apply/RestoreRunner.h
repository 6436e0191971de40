// The one runner of a restore: feeds `input` to `command` (a shell command
// line such as "ip netns exec NS iptables-restore --noflush 2>/dev/null").
#pragma once

#include <string>

namespace Agent {

// Returns a system()-style status: 0 when the command took the whole input
// and succeeded; -1 when it could not be started. Blocks until it exits.
int runRestore(const std::string& command, const std::string& input);

}  // namespace Agent
