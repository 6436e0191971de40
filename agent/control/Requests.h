// The control socket's requests, answered from what the agent holds:
//   {"request": "status"}                   -> status reply (Status.h)
//   {"request": "verify", "repair": BOOL}   -> verify reply (Verify.h)
//   {"request": "metrics"}                  -> {"reply": "metrics", "text": PROMETHEUS TEXT}
// Who may ask: whoever can connect (the socket is 0600, so root) reads
// status and metrics and verifies; a repair is root's only (peerUid 0).
// Anything else, and any failure on the way, gets {"reply":"error",...}:
// nothing a client sends ends the agent.
#pragma once

#include <functional>
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
  std::function<std::string()> metrics = nullptr;               // the metrics text; null: none
  std::function<void(const VerifyResult&)> verified = nullptr;  // each verify; may be null
  unsigned peerUid = 0;  // the asking process's user (SO_PEERCRED)
};

// One reply line (JSON and a newline).
std::string answerRequest(const std::string& request, const Services& services);

}  // namespace Agent::Control
