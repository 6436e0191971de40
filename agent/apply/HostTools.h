// The host's packet-filter tools, found on PATH before anything runs: a
// host without one of them must not start (its start-up flush would stop
// halfway, after other chains were flushed). The agent's own adapter
// folder does not count: its arptables is a translator that needs the
// host's arptables behind it.
#pragma once

#include <string>
#include <vector>

namespace Agent {

// The tools the plug-in's lines run.
extern const std::vector<std::string> hostTools;

// The first executable `tool` in the folders of `path` (":"-separated),
// skipping the folder `skip` (compared as canonical paths); empty if none.
std::string findOnPath(const std::string& tool, const std::string& path,
                       const std::string& skip = {});
// The tools of `tools` not found that way, in order.
std::vector<std::string> missingTools(const std::vector<std::string>& tools,
                                      const std::string& path, const std::string& skip = {});

}  // namespace Agent
