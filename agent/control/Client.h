// The client modes of acl-agent: `status` and `verify` ask the running
// agent on its control socket and print the reply.
//   status: the human tables, or the reply itself with --json; exit 0, or 2
//           when the agent cannot be asked.
//   verify: the findings (or the JSON); exit 0 in step, 1 on drift (also
//           when --repair repaired it), 2 on error.
//   metrics: the Prometheus text; exit 0, or 2 when the agent cannot be asked.
#pragma once

#include <optional>
#include <string>

#include "agent/Options.h"

namespace Agent::Control {

// One request on the socket at `path`: the reply's text, or nullopt with
// the reason in `why`. Waits at most `timeout` seconds for the reply.
std::optional<std::string> askAgent(const std::string& path, const std::string& request,
                                    double timeout, std::string& why);
int runClient(const Options& options);

}  // namespace Agent::Control
