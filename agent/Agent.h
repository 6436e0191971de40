// The host ACL agent's composition root: it builds the services, hands each
// what it needs, loads and initialises the plug-ins, and runs the loop. It
// holds no feature of its own; each lives in its folder:
//   source/   the state document: reading, file watch, two-phase reload;
//             the Redis source: subscribe, snapshot, follow, resync
//   apply/    the one runner and the appliers behind the plug-in's runBashCmd
//   control/  the control socket, status, verify and repair, self-verify
//   service/  signals, readiness for the service manager
//   arptables/ the arptables dialect
//
// Start-up order: the host lock (service/HostLock.h: a second agent, whatever
// its socket, stops before it runs anything; a dry run, which runs no
// command, takes none), the control socket, signals, the state document
// (refused: exit 1), the arptables dialect, the applier, the plug-ins, their
// init. Then the loop, which at each idle point (no posted work, no work
// timer: the plug-in's backlog is drained) does the first of: publish the
// phase 2 a reload waits for; tell the service manager READY=1; with
// --until-idle, stop. SIGTERM and SIGINT stop the loop (exit 0); SIGHUP
// reloads. An exception that escapes the loop ends the agent with status 1
// and "acl-agent: internal error: WHAT".
//
// With --redis the plug-ins' init waits for the source's first snapshot
// taken with the ready row (no start-up flush before the state is known);
// neither READY=1 nor --until-idle's stop comes before it.
//
// On the way out the applier is drained while the plug-ins are still
// loaded (their failure reports are their code), then the plug-ins are
// unloaded in reverse order. One agent per process: it installs the
// process's signal handlers and loop.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/Options.h"
#include "agent/apply/ApplyStats.h"
#include "agent/apply/KnownAbsent.h"
#include "agent/apply/Runner.h"
#include "agent/control/ControlService.h"
#include "agent/service/HostLock.h"
#include "agent/service/Readiness.h"
#include "agent/service/Signals.h"
#include "agent/source/DocumentSource.h"
#include "agent/source/PhasedPublisher.h"
#include "agent/source/Publisher.h"
#include "agent/source/redis/RedisSource.h"
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
  bool doLoadPlugins();
  bool doInitPlugins();
  void doTurn();
  Acl::PluginView* pluginView() const;
  // What verify runs its commands with (the runner, no shell) and tells
  // which delete lines will fail.
  Control::VerifyInputs verifyInputs();
  Control::AgentFacts agentFacts() const;

  Options options_;
  Service::HostLock hostLock_;  // released last
  Kiv::Ptr<Kiv::ActivityManager> loop_;
  Kiv::Ptr<Mirel::EntityManager> em_;
  ApplyStats applyStats_;
  Runner runner_{applyStats_};
  KnownAbsent knownAbsent_;
  Publisher publisher_;
  PhasedPublisher phased_;
  Service::Readiness readiness_;
  std::unique_ptr<DocumentSource> document_;
  std::unique_ptr<Redis::RedisSource> redis_;
  std::unique_ptr<Control::ControlService> control_;
  std::unique_ptr<Service::Signals> signals_;
  Kiv::Ptr<Acl::CommandApplier> applier_;
  Kiv::Ptr<Acl::PluginContext> context_;
  std::vector<void*> plugins_;  // dlopen handles, in load order
  double startedAt_ = 0;        // loop clock

  bool pluginsStarted_ = false;  // their init ran
  int status_ = 0;               // exit status once the loop stops
};

}  // namespace Agent
