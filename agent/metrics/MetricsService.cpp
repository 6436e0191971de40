#include "agent/metrics/MetricsService.h"

#include <iostream>

namespace Agent::Metrics {

MetricsService::MetricsService(Kiv::ActivityManager& loop, MetricsInputs inputs,
                               const std::vector<std::string>& messages)
    : loop_(loop), inputs_(std::move(inputs)), metrics_(messages) {}

MetricsService::~MetricsService() {
  loop_.timerDel(timer_);
}

bool MetricsService::doListen(const std::string& address) {
  http_ = std::make_unique<HttpEndpoint>();
  std::string why;
  if (!http_->doListen(address, why)) {
    std::cerr << "acl-agent: --metrics-listen: " << why << "\n";
    http_.reset();
    return false;
  }
  text();
  doSchedule();
  return true;
}

std::string MetricsService::text() {
  return doText(true);
}

std::string MetricsService::doText(bool pairs) {
  Acl::PluginView* view = inputs_.view();
  if (pairs) pairsAt_ = loop_.now();
  if (inputs_.others) inputs_.others(metrics_.registry());
  std::string t = metrics_.text(view, *inputs_.stats, inputs_.ready(), pairs);
  if (http_) http_->textIs(t);
  return t;
}

void MetricsService::doSchedule() {
  timer_ = loop_.timerIs(
      loop_.now() + refreshEvery,
      [this] {
        timer_ = 0;
        Acl::PluginView* view = inputs_.view();
        const bool draining = view && view->backlog().size > 0;
        doText(!draining || loop_.now() - pairsAt_ >= pairsEvery);
        doSchedule();
      },
      Kiv::ActivityManager::Kind::background);
}

}  // namespace Agent::Metrics
