// The host ACL agent: one event loop on the monotonic clock, the state
// database with the state document published into it, the plug-ins loaded
// and initialised, then the loop until a signal (or, with --until-idle,
// until nothing is left to do).
//
// The state file is re-read on SIGHUP and when it changes (its directory is
// watched, so a file replaced by rename is seen; changes within 0.1 s make
// one reload). A reload is all or nothing: a refused document changes
// nothing and the agent goes on with the state in force. SIGTERM and SIGINT
// stop the loop; the exit status is then 0. An exception that escapes the
// loop ends the agent with status 1 and an "internal error" message.
//
// Reload phases (see Publisher.h): a reload that withdraws virtual IPs
// publishes phase 1 (the withdrawals) at once and phase 2 (the new
// document) once the loop is idle: no posted work and no timer, which also
// means the plug-in's timer wheel has nothing pending. A reload that comes
// while phase 2 waits replaces its target: the phases are computed again
// from the state in force, and the new target too waits for the idle loop.
// --until-idle never exits while phase 2 waits.
//
// Messages go to stderr, one line each:
//   acl-agent: arptables: native|stock (WHY)   (once, before the plug-ins load;
//     see agent/arptables/ArptablesDialect.h)
//   acl-agent: published FILE, phase 1 of 2: N virtual IPs withdrawn
//   acl-agent: published FILE: 3 interfaces, 2 VRFs, 4 IPv4 VIPs, 1 IPv6 VIPs[ (N changes)]
//     (on reload, N counts the changes of both phases)
//   acl-agent: FILE: PLACE: REASON
//   acl-agent: internal error: WHAT
// Under a service manager ($NOTIFY_SOCKET, see service/Notify.h) the agent
// sends READY=1 when the loop first goes idle (the point --until-idle exits
// at), RELOADING=1 when a reload starts and READY=1 again once it is
// applied or refused, and STOPPING=1 on SIGTERM/SIGINT.
// The control socket (--control, see control/ControlServer.h) answers
// {"request":"status"} and {"request":"verify","repair":BOOL}; it is made
// before any plug-in loads, so a second agent on the same socket stops before
// it flushes anything. With --verify-every the agent verifies by itself
// between turns of its loop (no loop timer: phase 2 of a reload waits for
// the idle loop) and logs one line per drifted namespace:
//   acl-agent: verify: NS: N missing, N misordered, N extra[, repair queued]
// One agent per process: it installs signal handlers and the process's loop.
#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/Options.h"
#include "agent/Publisher.h"
#include "agent/apply/ApplyStats.h"
#include "agent/apply/KnownAbsent.h"
#include "agent/apply/Runner.h"
#include "agent/control/ControlServer.h"
#include "agent/control/Status.h"
#include "agent/control/Verify.h"
#include "platform/acl/CommandApplier.h"
#include "platform/acl/PluginLoader.h"
#include "platform/kiv/ActivityManager.h"

namespace Agent {

class AclAgent {
 public:
  explicit AclAgent(Options options);
  ~AclAgent();
  AclAgent(const AclAgent&) = delete;
  AclAgent& operator=(const AclAgent&) = delete;

  // Runs the agent to its end; returns the exit status: 0 when stopped by a
  // signal or idle with --until-idle, 1 when start-up fails.
  int run();

 private:
  bool doStart();
  // The applier of --apply / --dry-run; false (with the message printed)
  // when it cannot be made.
  bool doChooseApplier();
  bool doLoadPlugins();
  void doWatchSignals();
  void doWatchStateFile();
  // Publishes the state file, or its phase 1; false (with the message
  // printed) when refused.
  bool doPublishStateFile(bool reload);
  // Phase 2, or the only one: publishes the waiting target.
  void doPublishPending(bool reload);
  void doNotifyReady();
  void handleSignals();
  void handleStateDirEvents();
  bool doOpenControl();
  std::string handleControlRequest(const std::string& request);
  // What verify runs its commands with (runner_, no shell) and remembers.
  Control::VerifyInputs verifyInputs();
  void doVerifyByItself();

  Options options_;
  Kiv::Ptr<Kiv::ActivityManager> loop_;
  Kiv::Ptr<Mirel::EntityManager> em_;
  std::unique_ptr<Publisher> publisher_;
  ApplyStats applyStats_;
  Runner runner_{applyStats_};
  KnownAbsent knownAbsent_;           // delete lines verify --repair knows will fail
  std::set<std::string> verifiedNs_;  // every namespace verify has read
  std::ofstream dryRunFile_;
  Kiv::Ptr<Acl::CommandApplier> applier_;
  Kiv::Ptr<Acl::PluginContext> context_;
  std::vector<void*> plugins_;  // dlopen handles, in load order
  int signalFd_ = -1;           // read end of the signal handler's pipe
  int inotifyFd_ = -1;
  Kiv::ActivityManager::TimerId reloadTimer_ = 0;
  std::optional<StateDocument> pending_;  // phase 2's target, while it waits
  std::size_t pendingChanges_ = 0;        // made by phase 1 of the reload
  bool ready_ = false;                    // READY=1 sent since start-up or the last reload
  std::unique_ptr<Control::ControlServer> control_;
  Control::AgentFacts facts_;  // uptime filled in when asked
  std::string pendingSha256_;  // of the document that phase 2 publishes
  double startedAt_ = 0;       // loop clock
  double nextVerify_ = 0;      // loop clock, with --verify-every
};

}  // namespace Agent
