#include "agent/control/ControlService.h"

#include <iostream>

namespace Agent::Control {

ControlService::ControlService(Kiv::ActivityManager& loop, ControlConfig config,
                               ControlInputs inputs)
    : loop_(loop), config_(std::move(config)), inputs_(std::move(inputs)) {
  inputs_.verify.seen = &verifiedNs_;
}

ControlService::~ControlService() {
  loop_.timerDel(verifyTimer_);
}

bool ControlService::doOpen() {
  server_ = std::make_unique<ControlServer>(
      loop_, config_.path,
      ControlServer::PeerHandler([this](const std::string& request, unsigned uid) {
        return handleRequest(request, uid);
      }));
  std::string why;
  if (!server_->doListen(why)) {
    std::cerr << "acl-agent: --control: " << why << "\n";
    server_.reset();
    return false;
  }
  if (config_.verifyEvery > 0 && !config_.dryRun) doScheduleVerify();
  return true;
}

std::string ControlService::handleRequest(const std::string& request, unsigned uid) {
  return answerRequest(request, {inputs_.view(), inputs_.stats, inputs_.facts(), inputs_.verify,
                                 inputs_.metrics, inputs_.verified, uid});
}

void ControlService::doScheduleVerify() {
  verifyTimer_ = loop_.timerIs(
      loop_.now() + config_.verifyEvery,
      [this] {
        verifyTimer_ = 0;
        doVerifyByItself();
        doScheduleVerify();
      },
      Kiv::ActivityManager::Kind::background);
}

void ControlService::doVerifyByItself() {
  Acl::PluginView* view = inputs_.view();
  if (!view) return;
  VerifyResult r;
  try {
    r = doVerify(*view, inputs_.verify, config_.repair);
  } catch (const std::exception& e) {
    std::cerr << "acl-agent: verify failed: " << e.what() << "\n";
    return;
  }
  if (inputs_.verified) inputs_.verified(r);
  for (const NsDrift& d : r.namespaces) {
    if (d.inStep()) continue;
    std::cerr << "acl-agent: verify: " << d.ns << ": ";
    if (!d.error.empty())
      std::cerr << d.error;
    else
      std::cerr << d.missing.size() << " missing, " << d.misordered.size() << " misordered, "
                << d.extra.size() << " extra" << (config_.repair ? ", repair queued" : "");
    std::cerr << "\n";
  }
}

}  // namespace Agent::Control
