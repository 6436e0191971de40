#include "agent/Agent.h"

#include <dlfcn.h>

#include <iostream>

#include "agent/apply/Appliers.h"
#include "agent/apply/nft/NftReadBack.h"
#include "agent/arptables/ArptablesDialect.h"

namespace Agent {

namespace {

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
      phased_(publisher_, [this](const std::string&) {
        if (document_) document_->handlePublished();
      }) {
  Kiv::activityManagerIs(loop_);
}

AclAgent::~AclAgent() {
  loop_->afterCallbackIs(nullptr);
  // Reports queued in the applier are the plug-in's code: run them now.
  if (applier_) applier_->doApplyAll();
  control_.reset();
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
        phased_.doPublishWaiting();
      } else if (!readiness_.ready()) {
        readiness_.doNotifyIdle();
      } else if (options_.untilIdle) {
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
  return 0;
}

bool AclAgent::doStart() {
  startedAt_ = loop_->now();
  control_ = std::make_unique<Control::ControlService>(
      *loop_,
      Control::ControlConfig{options_.controlPath, options_.verifyEvery, options_.repair,
                             options_.dryRun},
      Control::ControlInputs{[this] { return pluginView(); }, &applyStats_,
                             [this] { return agentFacts(); },
                             [this](const std::string& line) {
                               // nft mode reads its own tables back, never another tool's.
                               if (auto* nft = dynamic_cast<Nft::NftApplier*>(applier_.ptr()))
                                 return Nft::doReadBack(*nft, line);
                               return Control::readBackCommand(line, applyStats_);
                             }});
  if (!control_->doOpen()) return false;
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
    document_ = std::make_unique<DocumentSource>(*loop_, phased_, options_.stateFile,
                                                 [this] { readiness_.reloadingIs(); });
    if (!document_->doStart()) return false;
  }
  // Before any plug-in loads: its start-up flushes already run arptables.
  // A dry run runs no packet-filter command, the probe included; nft needs no dialect.
  if (!options_.dryRun && options_.apply != Options::Apply::nft &&
      !doChooseArptablesDialect(options_.arptables, [this] {
        return runner_.commandIs(Dravo::DEFAULT_NS, {"arptables", "-L", "OUT"}) == 0;
      }))
    return false;
  std::string why;
  applier_ = makeApplier({applyMode(options_.apply), options_.dryRun, options_.dryRunFile}, runner_,
                         knownAbsent_, why);
  if (!applier_) {
    std::cerr << "acl-agent: " << why << "\n";
    return false;
  }
  if (!doLoadPlugins()) return false;
  context_ = new Acl::PluginContext(em_, applier_);
  // Whatever a loop turn queued (a slice, a repair) is applied when it ends.
  loop_->afterCallbackIs([this] { applier_->doApplyPending(); });
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
  f.uptime = loop_->now() - startedAt_;
  f.dryRun = options_.dryRun;
  return f;
}

}  // namespace Agent
