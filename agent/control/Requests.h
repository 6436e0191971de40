// The control socket's requests, answered from what the agent holds:
//   {"request": "status"}                   -> status reply (Status.h)
//   {"request": "verify", "repair": BOOL}   -> verify reply (Verify.h)
// Anything else, and any failure on the way, gets {"reply":"error",...}:
// nothing a client sends ends the agent.
#pragma once

#include <string>

#include "agent/apply/ApplyStats.h"
#include "agent/control/Status.h"
#include "agent/control/Verify.h"

namespace Agent::Control {

struct Services {
  Acl::PluginView* view = nullptr;  // null until the plug-in's state machine exists
  const ApplyStats* stats = nullptr;
  AgentFacts facts;
  VerifyInputs verify;
};

// One reply line (JSON and a newline).
std::string answerRequest(const std::string& request, const Services& services);

}  // namespace Agent::Control
