// The host ACL agent's composition root: it builds the services, hands each
// what it needs, loads and initialises the plug-ins, and runs the loop. It
// holds no feature of its own; each lives in its folder:
//   source/   the state document: reading, file watch, two-phase reload;
//             the Redis source: subscribe, snapshot, follow, resync
//   apply/    the one runner and the appliers behind the plug-in's runBashCmd
//   control/  the control socket, status, verify and repair, self-verify
//   service/  signals, readiness and watchdog for the service manager, the
//             log messages' way to the journal
//   metrics/  the metrics, over the control socket and HTTP
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
// reloads. An exception that escapes a loop callback or a publish (the
// plug-in applying a change, say) is logged with what was being applied,
// counted (acl_agent_apply_exceptions_total), and the loop goes on:
//   acl-agent: exception while applying ORIGIN: WHAT; going on (verify finds what is missing)
// One that escapes start-up ends the agent with status 1 and
// "acl-agent: internal error: WHAT".
//
// Before anything runs, the host's iptables, ip6tables and arptables must
// be on PATH (not counting the adapter's folder), unless --dry-run.
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
#include "agent/metrics/MetricsService.h"
#include "agent/service/Journal.h"
#include "agent/service/Readiness.h"
#include "agent/service/Signals.h"
#include "agent/service/Watchdog.h"
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
  void doGuarded(const std::function<void()>& work);
  void handleLoopError(std::exception_ptr e);
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
  std::unique_ptr<Metrics::MetricsService> metrics_;
  std::unique_ptr<Service::LogRouting> logRouting_;
  std::unique_ptr<Service::Watchdog> watchdog_;
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
  std::string applying_;        // the origin of the change last published
};

}  // namespace Agent
