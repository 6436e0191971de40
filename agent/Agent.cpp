#include "agent/Agent.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "agent/apply/Appliers.h"
#include "agent/arptables/ArptablesDialect.h"
#include "agent/service/Notify.h"
#include "agent/apply/BatchApplier.h"
#include "agent/control/Requests.h"
#include "agent/control/Sha256.h"

namespace Agent {

namespace {

constexpr double reloadDebounce = 0.1;  // seconds
int signalPipeWrite = -1;

// Hands the signal to the loop through the pipe; nothing else is safe here.
void onSignal(int sig) {
  const int saved = errno;
  const unsigned char s = static_cast<unsigned char>(sig);
  [[maybe_unused]] ssize_t n = ::write(signalPipeWrite, &s, 1);
  errno = saved;
}

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string summary(const StateDocument& d) {
  return std::to_string(d.interfaces.size()) + " interfaces, " + std::to_string(d.vrfs.size()) +
         " VRFs, " + std::to_string(d.virtualIps.size()) + " IPv4 VIPs, " +
         std::to_string(d.virtualIps6.size()) + " IPv6 VIPs";
}

}  // namespace

AclAgent::AclAgent(Options options)
    : options_(std::move(options)),
      loop_(new Kiv::ActivityManager(new Kiv::MonotonicClock())),
      em_(new Mirel::EntityManager()),
      publisher_(std::make_unique<Publisher>(em_)) {
  Kiv::activityManagerIs(loop_);
}

AclAgent::~AclAgent() {
  loop_->afterCallbackIs(nullptr);
  control_.reset();
  // The view's code lives in the plug-in: let it go before the plug-in does.
  if (context_) context_->pluginViewIs(nullptr);
  // Plug-ins first (in reverse), while the inputs and the loop they use exist.
  for (auto it = plugins_.rbegin(); it != plugins_.rend(); ++it) ::dlclose(*it);
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) std::signal(sig, SIG_DFL);
  for (int fd : {signalFd_, signalPipeWrite, inotifyFd_})
    if (fd >= 0) ::close(fd);
  signalPipeWrite = -1;
}

int AclAgent::run() {
  try {
    if (!doStart()) return 1;
    while (!loop_->stopped()) {
      if (loop_->idle() && pending_)
        doPublishPending(true);
      else if (loop_->idle() && !ready_)
        doNotifyReady();
      else if (loop_->idle() && options_.untilIdle)
        break;
      else
        loop_->runOnce(1.0);
      if (options_.verifyEvery > 0 && loop_->now() >= nextVerify_) doVerifyByItself();
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
  nextVerify_ = startedAt_ + options_.verifyEvery;
  facts_.dryRun = options_.dryRun;
  if (!doOpenControl()) return false;
  // Watch first: a signal or a change during start-up waits for the loop.
  doWatchSignals();
  if (!options_.stateFile.empty()) {
    doWatchStateFile();
    if (!doPublishStateFile(false)) return false;
  }
  // Before any plug-in loads: its start-up flushes already run arptables.
  // A dry run runs no packet-filter command, the probe included.
  if (!options_.dryRun && !doChooseArptablesDialect(options_.arptables)) return false;
  if (!doChooseApplier() || !doLoadPlugins()) return false;
  context_ = new Acl::PluginContext(em_, applier_);
  // A unit of the plug-in's work (one slice, say) is applied when it ends.
  loop_->afterCallbackIs([this] { applier_->doApplyPending(); });
  try {
    Acl::DefaultPluginLoader().doInit(context_.ptr());
  } catch (const std::exception& e) {
    std::cerr << "acl-agent: plug-in init failed: " << e.what() << "\n";
    return false;
  }
  return true;
}

bool AclAgent::doChooseApplier() {
  if (options_.dryRun) {
    std::ostream* out = &std::cout;
    if (!options_.dryRunFile.empty()) {
      dryRunFile_.open(options_.dryRunFile, std::ios::out | std::ios::trunc);
      if (!dryRunFile_) {
        std::cerr << "acl-agent: --dry-run: cannot write " << options_.dryRunFile << ": "
                  << std::strerror(errno) << "\n";
        return false;
      }
      out = &dryRunFile_;
    }
    applier_ = new DryRunApplier(applyStats_, *out);
    return true;
  }
  if (options_.apply == Options::Apply::batch)
    applier_ = new BatchApplier(applyStats_, runRestore, &knownAbsent_);
  else
    applier_ = new PerLineApplier(applyStats_, &knownAbsent_);
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

void AclAgent::doWatchSignals() {
  int fds[2];
  if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
    std::perror("acl-agent: pipe2");
    return;
  }
  signalFd_ = fds[0];
  signalPipeWrite = fds[1];
  struct sigaction sa = {};
  sa.sa_handler = onSignal;
  sa.sa_flags = SA_RESTART;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &sa, nullptr);
  loop_->fdIs(signalFd_, [this] { handleSignals(); });
}

void AclAgent::doWatchStateFile() {
  std::filesystem::path dir = std::filesystem::path(options_.stateFile).parent_path();
  if (dir.empty()) dir = ".";
  inotifyFd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotifyFd_ < 0 ||
      ::inotify_add_watch(inotifyFd_, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
    std::perror(("acl-agent: cannot watch " + dir.string() + " (reload with SIGHUP)").c_str());
    return;
  }
  loop_->fdIs(inotifyFd_, [this] { handleStateDirEvents(); });
}

bool AclAgent::doPublishStateFile(bool reload) {
  const std::string& file = options_.stateFile;
  if (reload && ready_) {
    Service::notifyReloading();
    ready_ = false;
  }
  StateDocument next;
  try {
    next = loadStateDocument(file);
  } catch (const std::exception& e) {  // a refused document, or one too large to hold
    std::cerr << "acl-agent: " << file << ": " << e.what() << "\n";
    facts_.lastRefused = wallNow();
    facts_.lastRefusedWhy = e.what();
    if (reload) std::cerr << "acl-agent: reload refused; the state in force stays\n";
    return false;
  }
  pendingSha256_ = Control::fileSha256Hex(file);
  // Behind a phase 1, this reload's or an earlier one's, the target waits.
  const bool waiting = pending_.has_value();
  std::optional<StateDocument> first = reloadPhaseOne(publisher_->current(), next);
  if (first) {
    const std::size_t withdrawn = publisher_->publish(*first);
    pendingChanges_ += withdrawn;
    std::cerr << "acl-agent: published " << file << ", phase 1 of 2: " << withdrawn
              << " virtual IPs withdrawn\n";
  }
  pending_ = std::move(next);
  if (!first && !waiting) doPublishPending(reload);
  return true;
}

void AclAgent::doPublishPending(bool reload) {
  const StateDocument next = std::move(*pending_);
  pending_.reset();
  const std::size_t changes = pendingChanges_ + publisher_->publish(next);
  pendingChanges_ = 0;
  facts_.documentPath = options_.stateFile;
  facts_.documentSha256 = pendingSha256_;
  facts_.documentApplied = wallNow();
  std::cerr << "acl-agent: published " << options_.stateFile << ": " << summary(next);
  if (reload) std::cerr << " (" << changes << " changes)";
  std::cerr << "\n";
}

void AclAgent::doNotifyReady() {
  // The first idle loop: the plug-in's start-up flush ran and the document's
  // rules are made; after a reload, all its phases are applied.
  Service::notify("READY=1");
  ready_ = true;
}

void AclAgent::handleSignals() {
  unsigned char sigs[16];
  ssize_t n;
  while ((n = ::read(signalFd_, sigs, sizeof sigs)) > 0) {
    for (ssize_t i = 0; i < n; ++i) {
      if (sigs[i] != SIGHUP) {
        std::cerr << "acl-agent: " << ::strsignal(sigs[i]) << ": stopping\n";
        Service::notify("STOPPING=1");
        loop_->stop();
      } else if (options_.stateFile.empty()) {
        std::cerr << "acl-agent: SIGHUP: no state file to reload\n";
      } else {
        doPublishStateFile(true);
      }
    }
  }
}

void AclAgent::handleStateDirEvents() {
  alignas(inotify_event) char buf[4096];
  const std::string name = std::filesystem::path(options_.stateFile).filename().string();
  bool ours = false;
  ssize_t n;
  while ((n = ::read(inotifyFd_, buf, sizeof buf)) > 0) {
    for (char* p = buf; p < buf + n;) {
      const auto* ev = reinterpret_cast<const inotify_event*>(p);
      ours = ours || (ev->len > 0 && name == ev->name);
      p += sizeof(inotify_event) + ev->len;
    }
  }
  if (!ours) return;
  // Writers often touch a file more than once; one reload after they settle.
  loop_->timerDel(reloadTimer_);
  reloadTimer_ = loop_->timerIs(loop_->now() + reloadDebounce, [this] {
    reloadTimer_ = 0;
    doPublishStateFile(true);
  });
}

bool AclAgent::doOpenControl() {
  control_ = std::make_unique<Control::ControlServer>(
      *loop_, options_.controlPath,
      [this](const std::string& request) { return handleControlRequest(request); });
  std::string why;
  if (control_->doListen(why)) return true;
  std::cerr << "acl-agent: --control: " << why << "\n";
  control_.reset();
  return false;
}

std::string AclAgent::handleControlRequest(const std::string& request) {
  facts_.uptime = loop_->now() - startedAt_;
  return Control::answerRequest(request, {context_ ? context_->pluginView().ptr() : nullptr,
                                          &applyStats_, facts_, verifyInputs()});
}

Control::VerifyInputs AclAgent::verifyInputs() {
  auto command = [this](const std::string& ns, const std::vector<std::string>& argv,
                        std::string* out) {
    return runner_.commandIs(ns == "default" ? Dravo::DEFAULT_NS : Dravo::NamespaceName(ns), argv,
                             {}, out);
  };
  return {command, Control::namespaceExists,
          [this](const std::string& line) { knownAbsent_.lineIs(line); }, &verifiedNs_};
}

void AclAgent::doVerifyByItself() {
  nextVerify_ = loop_->now() + options_.verifyEvery;
  Acl::PluginView* view = context_ ? context_->pluginView().ptr() : nullptr;
  if (options_.dryRun || !view) return;
  Control::VerifyResult r;
  try {
    r = Control::doVerify(*view, verifyInputs(), options_.repair);
  } catch (const std::exception& e) {
    std::cerr << "acl-agent: verify failed: " << e.what() << "\n";
    return;
  }
  for (const Control::NsDrift& d : r.namespaces) {
    if (d.inStep()) continue;
    std::cerr << "acl-agent: verify: " << d.ns << ": ";
    if (!d.error.empty())
      std::cerr << d.error;
    else
      std::cerr << d.missing.size() << " missing, " << d.misordered.size() << " misordered, "
                << d.extra.size() << " extra" << (options_.repair ? ", repair queued" : "");
    std::cerr << "\n";
  }
}

}  // namespace Agent
