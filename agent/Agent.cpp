#include "agent/Agent.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "agent/Utf8.h"
#include "agent/apply/Appliers.h"
#include "agent/apply/HostTools.h"
#include "agent/apply/nft/NftReadBack.h"
#include "agent/arptables/ArptablesDialect.h"

namespace Agent {

namespace {

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string pathVariable() {
  const char* p = std::getenv("PATH");
  return p ? p : "/usr/sbin:/usr/bin:/sbin:/bin";
}

ApplyChoice::Mode applyMode(Options::Apply a) {
  switch (a) {
    case Options::Apply::batch:
      return ApplyChoice::Mode::batch;
    case Options::Apply::nft:
      return ApplyChoice::Mode::nft;
    case Options::Apply::perLine:
      break;
  }
  return ApplyChoice::Mode::perLine;
}

}  // namespace

AclAgent::AclAgent(Options options)
    : options_(std::move(options)),
      loop_(new Kiv::ActivityManager(new Kiv::MonotonicClock())),
      em_(new Mirel::EntityManager()),
      publisher_(em_),
      phased_(publisher_, [this](const std::string& origin) {
        applying_ = origin;
        if (phased_.lastChanges() > 0 && metrics_) metrics_->metrics().stateChangedIs(wallNow());
        if (document_) document_->handlePublished();
        if (redis_) redis_->handlePublished();
      }) {
  Kiv::activityManagerIs(loop_);
}

AclAgent::~AclAgent() {
  loop_->afterCallbackIs(nullptr);
  loop_->callbackErrorIs(nullptr);
  // Reports queued in the applier are the plug-in's code: run them now.
  if (applier_) applier_->doApplyAll();
  control_.reset();
  redis_.reset();
  // The view's code lives in the plug-in: let it go before the plug-in does.
  if (context_) context_->pluginViewIs(nullptr);
  // Plug-ins first (in reverse), while the inputs and the loop they use exist.
  for (auto it = plugins_.rbegin(); it != plugins_.rend(); ++it) ::dlclose(*it);
}

int AclAgent::run() {
  try {
    if (!doStart()) return 1;
    while (!loop_->stopped()) {
      if (!loop_->idle()) {
        loop_->runOnce(1.0);
      } else if (phased_.waiting()) {
        doGuarded([this] { phased_.doPublishWaiting(); });
      } else if (!readiness_.ready() && pluginsStarted_) {
        readiness_.doNotifyIdle();
        metrics_->text();  // scrapes see the converged state at once
      } else if (options_.untilIdle && pluginsStarted_) {
        break;
      } else {
        loop_->runOnce(1.0);
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "acl-agent: internal error: " << e.what() << "\n";
    return 1;
  } catch (...) {
    std::cerr << "acl-agent: internal error: unknown exception\n";
    return 1;
  }
  return status_;
}

void AclAgent::doGuarded(const std::function<void()>& work) {
  try {
    work();
  } catch (...) {
    handleLoopError(std::current_exception());
  }
}

void AclAgent::handleLoopError(std::exception_ptr e) {
  std::string what = "unknown exception";
  try {
    std::rethrow_exception(e);
  } catch (const std::exception& x) {
    what = x.what();
  } catch (...) {
  }
  std::cerr << "acl-agent: exception while applying "
            << (applying_.empty() ? "the start-up state" : applying_) << ": " << what
            << "; going on (verify finds what is missing)\n";
  metrics_->metrics().exceptionIs();
}

bool AclAgent::doStart() {
  startedAt_ = loop_->now();
  std::string why;  // a dry run runs no command: it may run beside the agent
  if (!options_.dryRun && !hostLock_.doTake(options_.lockPath, why)) {
    std::cerr << "acl-agent: " << escapeInvalidUtf8(why) << "; this one runs nothing\n";
    return false;
  }
  // Nothing has run yet: a host without its tools stops here, untouched.
  if (!options_.dryRun) {
    const std::vector<std::string> missing =
        missingTools(hostTools, pathVariable(), adapterFolder());
    if (!missing.empty()) {
      std::string names;
      for (const std::string& t : missing) names += (names.empty() ? "" : ", ") + t;
      std::cerr << "acl-agent: not found on PATH: " << names
                << " (the start-up flush needs iptables, ip6tables and arptables); nothing was "
                   "run\n";
      return false;
    }
  }
  metrics_ = std::make_unique<Metrics::MetricsService>(
      *loop_,
      Metrics::MetricsInputs{[this] { return pluginView(); }, &applyStats_,
                             [this] { return readiness_.ready(); }},
      Service::messageNames());
  const bool journal = options_.log == Options::Log::journal ||
                       (options_.log == Options::Log::automatic && Service::stderrIsJournal());
  logRouting_ = std::make_unique<Service::LogRouting>(journal, metrics_->metrics(), applyStats_);
  loop_->callbackErrorIs([this](std::exception_ptr e) { handleLoopError(e); });
  control_ = std::make_unique<Control::ControlService>(
      *loop_,
      Control::ControlConfig{options_.controlPath, options_.verifyEvery, options_.repair,
                             options_.dryRun},
      Control::ControlInputs{
          [this] { return pluginView(); }, &applyStats_, [this] { return agentFacts(); },
          verifyInputs(), [this] { return metrics_->text(); },
          [this](const Control::VerifyResult& r) {
            std::size_t drift = 0;
            for (const Control::NsDrift& d : r.namespaces)
              drift += d.missing.size() + d.misordered.size() + d.extra.size();
            metrics_->metrics().verifiedIs(drift, r.queued + r.readded + r.removed);
          }});
  if (!control_->doOpen()) return false;
  if (!options_.metricsListen.empty() && !metrics_->doListen(options_.metricsListen)) return false;
  watchdog_ = std::make_unique<Service::Watchdog>(*loop_, [this] { return !readiness_.started(); });
  // Signals first: one during start-up waits for the loop.
  signals_ = std::make_unique<Service::Signals>(
      *loop_,
      [this](int sig) {
        std::cerr << "acl-agent: " << ::strsignal(sig) << ": stopping\n";
        readiness_.stoppingIs();
        loop_->stop();
      },
      [this](int) {
        if (document_)
          document_->doReload();
        else
          std::cerr << "acl-agent: SIGHUP: no state file to reload\n";
      });
  if (!options_.stateFile.empty()) {
    document_ = std::make_unique<DocumentSource>(
        *loop_, phased_, options_.stateFile, [this] { readiness_.reloadingIs(); },
        [this](bool applied) { metrics_->metrics().reloadIs(applied); });
    if (!document_->doStart()) return false;
  }
  if (!options_.redisAddress.empty())
    redis_ = std::make_unique<Redis::RedisSource>(
        *loop_, phased_,
        Redis::SourceConfig{Redis::parseAddress(options_.redisAddress), options_.redisDb},
        [this] {
          if (!doInitPlugins()) status_ = 1, loop_->stop();
        },
        [this] { return pluginView(); });
  if (redis_) {
    Metrics::Registry& r = metrics_->metrics().registry();
    r.familyIs("acl_agent_redis_connected", Metrics::Registry::Type::gauge,
               "1 while the Redis source is connected.");
    r.familyIs("acl_agent_redis_ready", Metrics::Registry::Type::gauge,
               "1 while the Redis source's ready row exists.");
    metrics_->othersIs([this](Metrics::Registry& reg) {
      const SourceFacts f = redis_->facts();
      reg.setIs("acl_agent_redis_connected", {}, f.connected ? 1 : 0);
      reg.setIs("acl_agent_redis_ready", {}, f.ready ? 1 : 0);
    });
  }
  // Before any plug-in loads: its start-up flushes already run arptables.
  // A dry run runs no packet-filter command, the probe included; nft needs no
  // dialect. The probe asks the host's own arptables: the adapter may be
  // first on PATH already (the unit puts it there), and it would always answer.
  if (!options_.dryRun && options_.apply != Options::Apply::nft &&
      !doChooseArptablesDialect(options_.arptables, [this] {
        const std::string own = findOnPath("arptables", pathVariable(), adapterFolder());
        return !own.empty() && runner_.commandIs(Dravo::DEFAULT_NS, {own, "-L", "OUT"}) == 0;
      }))
    return false;
  applier_ = makeApplier({applyMode(options_.apply), options_.dryRun, options_.dryRunFile}, runner_,
                         knownAbsent_, why);
  if (!applier_) {
    std::cerr << "acl-agent: " << why << "\n";
    return false;
  }
  if (!doLoadPlugins()) return false;
  context_ = new Acl::PluginContext(em_, applier_);
  // Whatever a loop turn queued (a slice, a repair) is applied when it ends.
  loop_->afterCallbackIs([this] {
    applier_->doApplyPending();
    metrics_->metrics().turnEndedIs(applyStats_, wallNow());
  });
  if (!redis_) return doInitPlugins();
  redis_->doStart();  // it calls doInitPlugins once the state is known
  return true;
}

bool AclAgent::doInitPlugins() {
  pluginsStarted_ = true;
  try {
    Acl::DefaultPluginLoader().doInit(context_.ptr());
  } catch (const std::exception& e) {
    std::cerr << "acl-agent: plug-in init failed: " << e.what() << "\n";
    return false;
  }
  return true;
}

bool AclAgent::doLoadPlugins() {
  for (const std::string& so : options_.plugins) {
    void* h = ::dlopen(so.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (!h) {
      std::cerr << "acl-agent: cannot load plug-in: " << ::dlerror() << "\n";
      return false;
    }
    plugins_.push_back(h);
  }
  if (Acl::DefaultPluginLoader().initCallerCount() == 0)
    std::cerr << "acl-agent: warning: no plug-in registered with the loader\n";
  return true;
}

Control::VerifyInputs AclAgent::verifyInputs() {
  auto command = [this](const std::string& ns, const std::vector<std::string>& argv,
                        std::string* out) {
    // nft mode reads and repairs its own tables, never another tool's.
    if (auto* nft = dynamic_cast<Nft::NftApplier*>(applier_.ptr()))
      return Nft::doCommand(*nft, ns, argv, out);
    // What is taken is in force before it is read back.
    applier_->doApplyAll();
    return runner_.commandIs(Dravo::NamespaceName(ns), argv, {}, out);
  };
  return {command, Control::namespaceExists,
          [this](const std::string& line) { knownAbsent_.lineIs(line); }, nullptr};
}

Acl::PluginView* AclAgent::pluginView() const {
  return context_ ? context_->pluginView().ptr() : nullptr;
}

Control::AgentFacts AclAgent::agentFacts() const {
  Control::AgentFacts f;
  if (document_) {
    const DocumentFacts& d = document_->facts();
    f.documentPath = d.path;
    f.documentSha256 = d.sha256;
    f.documentApplied = d.applied;
    f.lastRefused = d.lastRefused;
    f.lastRefusedWhy = d.lastRefusedWhy;
  }
  if (redis_) f.source = redis_->facts();
  f.uptime = loop_->now() - startedAt_;
  f.dryRun = options_.dryRun;
  return f;
}

}  // namespace Agent
