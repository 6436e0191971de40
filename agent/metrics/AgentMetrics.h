// The agent's metrics (names acl_agent_*), kept in one Registry: counters
// the loop bumps as things happen, and gauges recomputed from the plug-in's
// view and the apply counts each time the text is made. The README's
// "Monitoring" section lists them. No label carries an address or an
// interface: namespace, family, tool and message name are the only labels,
// so the number of series stays bounded by the host's configuration.
//
// Event-loop thread only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/apply/ApplyStats.h"
#include "agent/metrics/Registry.h"
#include "platform/acl/PluginView.h"

namespace Agent::Metrics {

class AgentMetrics {
 public:
  // `messages`: the log message names counted from 0 from the start.
  explicit AgentMetrics(const std::vector<std::string>& messages = {});

  void logMessageIs(std::string_view name);
  // A loop turn ended (its lines applied): with commands run in it, their
  // time is one apply-duration sample, and a turn without a failure is the
  // last successful apply. Times are seconds since the epoch.
  void turnEndedIs(const ApplyStats& stats, double wallNow);
  // A document (or phase) was published: the inputs changed.
  void stateChangedIs(double wallNow);
  void reloadIs(bool applied);
  void verifiedIs(std::size_t drift, std::size_t repaired);
  // An exception stopped a loop callback (the loop went on).
  void exceptionIs();

  // Refreshes the gauges from `view` (may be null) and `stats`; returns the
  // text. `ready`: READY=1 told since the last reload. Without `pairs` the
  // per-pair gauges (rules, pairs) keep their last values: they walk every
  // virtual IP, which a caller may not want to pay while a backlog drains.
  std::string text(const Acl::PluginView* view, const ApplyStats& stats, bool ready,
                   bool pairs = true);
  // Where a source adds its own families (the Redis source: connected and
  // ready as 0/1 gauges, acl_agent_redis_*), declared after construction.
  Registry& registry() { return r_; }

 private:
  void doRefreshPairs(const Acl::PluginView* view);
  void doRefresh(const Acl::PluginView* view, const ApplyStats& stats, bool ready);

  Registry r_;
  std::uint64_t lastTimed_ = 0, lastFailed_ = 0;
  double lastSpent_ = 0;
};

}  // namespace Agent::Metrics
