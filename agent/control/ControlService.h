// The control plane as one service: the control socket (ControlServer.h)
// answering status and verify requests (Requests.h), and, with a period,
// the agent verifying (and repairing) by itself. Self-verify runs as loop
// work on a background timer, so whatever its repair queues is applied at
// the end of that same loop turn, and waiting for it never keeps the loop
// from being idle. It logs one line per drifted namespace:
//   acl-agent: verify: NS: N missing, N misordered, N extra[, repair queued]
// Event-loop thread only.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "agent/apply/ApplyStats.h"
#include "agent/control/ControlServer.h"
#include "agent/control/Requests.h"
#include "platform/acl/PluginView.h"
#include "platform/kiv/ActivityManager.h"

namespace Agent::Control {

struct ControlConfig {
  std::string path;        // the control socket
  double verifyEvery = 0;  // seconds; 0: never by itself
  bool repair = false;     // self-verify repairs too
  bool dryRun = false;     // nothing installed: verify refused, never by itself
};

// What the service reads from the rest of the agent, each call anew.
struct ControlInputs {
  std::function<Acl::PluginView*()> view;  // null until the plug-in is ready
  const ApplyStats* stats = nullptr;
  std::function<AgentFacts()> facts;
  // Runs verify's commands (no shell) and takes the delete lines it knows
  // will fail; `seen` is kept by the service itself.
  VerifyInputs verify;
  std::function<std::string()> metrics = nullptr;               // may be null
  std::function<void(const VerifyResult&)> verified = nullptr;  // each verify, asked or not
};

class ControlService {
 public:
  ControlService(Kiv::ActivityManager& loop, ControlConfig config, ControlInputs inputs);
  ~ControlService();
  ControlService(const ControlService&) = delete;
  ControlService& operator=(const ControlService&) = delete;

  // Makes the socket; false with the message printed when it cannot.
  bool doOpen();

 private:
  std::string handleRequest(const std::string& request, unsigned uid);
  void doVerifyByItself();
  void doScheduleVerify();

  Kiv::ActivityManager& loop_;
  ControlConfig config_;
  ControlInputs inputs_;
  std::unique_ptr<ControlServer> server_;
  Kiv::ActivityManager::TimerId verifyTimer_ = 0;
  std::set<std::string> verifiedNs_;  // every namespace verify has read
};

}  // namespace Agent::Control
