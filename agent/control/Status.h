// status: what the running agent reports about itself and its plug-in, as
// the JSON reply of the control socket (its schema is in the README).
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "agent/apply/ApplyStats.h"
#include "agent/source/SourceFacts.h"
#include "platform/acl/PluginView.h"

namespace Agent::Control {

// The state document in force and the agent's own facts. Times are seconds
// since the epoch; 0 means never.
struct AgentFacts {
  std::string documentPath;  // empty: no state file
  std::string documentSha256;
  double documentApplied = 0;
  double lastRefused = 0;
  std::string lastRefusedWhy;
  double uptime = 0;  // seconds
  bool dryRun = false;
  std::optional<SourceFacts> source;  // a live source (Redis); none with a document
};

// The status reply line, as ControlServer::replyLine makes it. `view` may
// be null (no plug-in state machine yet): its parts are empty.
std::string statusReply(const Acl::PluginView* view, const ApplyStats& stats,
                        const AgentFacts& facts);

// The reply's members but for the per-VIP lists (virtualIps, subnets), which
// statusReply writes as text: as a json tree they cost more at 20,000
// virtual IPs than reading the plug-in.
nlohmann::json statusJson(const Acl::PluginView* view, const ApplyStats& stats,
                          const AgentFacts& facts);

}  // namespace Agent::Control
