// Metrics as one service: the agent's metrics (AgentMetrics.h), their text
// for the control socket's "metrics" request, and, with an address, the
// HTTP endpoint (HttpEndpoint.h). The loop makes the text: every second on
// a background timer (which never keeps the loop from being idle) and at
// each request on the control socket; each new text is published to the
// endpoint, so a scrape reads what the loop last made, at most 1 s old.
// The per-pair gauges walk every virtual IP: while the backlog drains the
// timer refreshes them at most every pairsEvery seconds (a convergence is
// not slowed by its own metrics); a request, and an idle backlog, always
// refresh them.
// Event-loop thread only (the endpoint's thread reads only the text).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/apply/ApplyStats.h"
#include "agent/metrics/AgentMetrics.h"
#include "agent/metrics/HttpEndpoint.h"
#include "platform/acl/PluginView.h"
#include "platform/kiv/ActivityManager.h"

namespace Agent::Metrics {

struct MetricsInputs {
  std::function<Acl::PluginView*()> view;  // null until the plug-in is ready
  const ApplyStats* stats = nullptr;
  std::function<bool()> ready;
  // Sets the gauges of whatever else declared families in the registry (a
  // source's connected/ready); called at each refresh; may be null.
  std::function<void(Registry&)> others = nullptr;
};

class MetricsService {
 public:
  static constexpr double refreshEvery = 1.0;  // seconds
  static constexpr double pairsEvery = 10.0;   // seconds, while the backlog drains

  MetricsService(Kiv::ActivityManager& loop, MetricsInputs inputs,
                 const std::vector<std::string>& messages);
  ~MetricsService();
  MetricsService(const MetricsService&) = delete;
  MetricsService& operator=(const MetricsService&) = delete;

  // Serves GET /metrics on `address`; false with the message printed.
  bool doListen(const std::string& address);
  AgentMetrics& metrics() { return metrics_; }
  void othersIs(std::function<void(Registry&)> others) { inputs_.others = std::move(others); }
  // The text as of now (all of it), also published to the endpoint.
  std::string text();

 private:
  void doSchedule();
  std::string doText(bool pairs);

  Kiv::ActivityManager& loop_;
  MetricsInputs inputs_;
  AgentMetrics metrics_;
  std::unique_ptr<HttpEndpoint> http_;
  Kiv::ActivityManager::TimerId timer_ = 0;
  double pairsAt_ = 0;  // loop clock of the last per-pair refresh
};

}  // namespace Agent::Metrics
