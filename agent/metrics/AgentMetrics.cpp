#include "agent/metrics/AgentMetrics.h"

#include <map>
#include <utility>

namespace Agent::Metrics {

namespace {

using T = Registry::Type;

// Per slice: from a few ms (batch, a handful of lines) to the 1 s budget
// and beyond (a per-line slice ends after its budget is spent).
const std::vector<double> durationBuckets = {0.005, 0.01, 0.025, 0.05, 0.1, 0.25,
                                             0.5,   1,    2.5,   5,    10,  30};

}  // namespace

AgentMetrics::AgentMetrics(const std::vector<std::string>& messages) {
  r_.familyIs("acl_agent_rules", T::gauge,
              "Packet-filter rules in force (recorded by the plug-in) per namespace and family "
              "(ipv4, ipv6: two per pair; arp: one per subnet).",
              {"namespace", "family"});
  r_.familyIs("acl_agent_pairs_installed", T::gauge,
              "Virtual IP and interface pairs whose rules are installed.");
  r_.familyIs("acl_agent_pairs_queued", T::gauge,
              "Virtual IP and interface pairs waiting in the backlog.");
  r_.familyIs("acl_agent_pairs_failed", T::gauge,
              "Wanted pairs neither installed nor queued (a failed command or an unusable "
              "namespace).");
  r_.familyIs("acl_agent_backlog_size", T::gauge, "Entries in the plug-in's backlog.");
  r_.familyIs("acl_agent_backlog_oldest_age_seconds", T::gauge,
              "Age of the backlog's oldest entry; 0 when it is empty.");
  r_.familyIs("acl_agent_slices_cut_short_total", T::counter,
              "Backlog slices that ran out of their time budget.");
  r_.familyIs("acl_agent_commands_total", T::counter, "Commands run, per tool.", {"tool"});
  r_.familyIs("acl_agent_command_failures_total", T::counter, "Commands that failed, per tool.",
              {"tool"});
  r_.familyIs("acl_agent_log_messages_total", T::counter,
              "Structured log messages raised, per message name.", {"message"});
  r_.familyIs("acl_agent_apply_duration_seconds", T::histogram,
              "Time spent running the commands of one loop turn (a backlog slice).", {},
              durationBuckets);
  r_.familyIs("acl_agent_last_apply_success_timestamp_seconds", T::gauge,
              "When a loop turn last ran its commands without a failure (seconds since the "
              "epoch; 0: never).");
  r_.familyIs("acl_agent_last_state_change_timestamp_seconds", T::gauge,
              "When the published inputs last changed (seconds since the epoch; 0: never).");
  r_.familyIs("acl_agent_reloads_applied_total", T::counter, "Reloads published.");
  r_.familyIs("acl_agent_reloads_refused_total", T::counter,
              "Reloads refused (a bad document, or one that would not fit in memory).");
  r_.familyIs("acl_agent_verify_runs_total", T::counter, "Verify runs (asked for or periodic).");
  r_.familyIs("acl_agent_verify_drift_total", T::counter,
              "Drifted rules found by verify (missing, misordered, extra).");
  r_.familyIs("acl_agent_verify_repaired_total", T::counter,
              "Repairs made by verify (pairs queued, rules re-added or removed).");
  r_.familyIs("acl_agent_apply_exceptions_total", T::counter,
              "Exceptions caught at the loop while applying a change; the agent went on.");
  r_.familyIs("acl_agent_plugin_ready", T::gauge, "1 once the plug-in's state machine exists.");
  r_.familyIs("acl_agent_ready", T::gauge,
              "1 while the service manager has been told READY=1 (0 during start-up and "
              "reloads).");
  for (const char* n :
       {"acl_agent_slices_cut_short_total", "acl_agent_reloads_applied_total",
        "acl_agent_reloads_refused_total", "acl_agent_verify_runs_total",
        "acl_agent_verify_drift_total", "acl_agent_verify_repaired_total",
        "acl_agent_apply_exceptions_total", "acl_agent_last_apply_success_timestamp_seconds",
        "acl_agent_last_state_change_timestamp_seconds"})
    r_.add(n, {}, 0);
  for (const std::string& m : messages) r_.add("acl_agent_log_messages_total", {m}, 0);
}

void AgentMetrics::logMessageIs(std::string_view name) {
  r_.add("acl_agent_log_messages_total", {std::string(name)});
}

void AgentMetrics::turnEndedIs(const ApplyStats& stats, double wallNow) {
  if (stats.timed() == lastTimed_) return;
  r_.observe("acl_agent_apply_duration_seconds", {}, stats.spent() - lastSpent_);
  if (stats.failedTotal() == lastFailed_)
    r_.setIs("acl_agent_last_apply_success_timestamp_seconds", {}, wallNow);
  lastTimed_ = stats.timed();
  lastSpent_ = stats.spent();
  lastFailed_ = stats.failedTotal();
}

void AgentMetrics::stateChangedIs(double wallNow) {
  r_.setIs("acl_agent_last_state_change_timestamp_seconds", {}, wallNow);
}

void AgentMetrics::reloadIs(bool applied) {
  r_.add(applied ? "acl_agent_reloads_applied_total" : "acl_agent_reloads_refused_total");
}

void AgentMetrics::verifiedIs(std::size_t drift, std::size_t repaired) {
  r_.add("acl_agent_verify_runs_total");
  r_.add("acl_agent_verify_drift_total", {}, double(drift));
  r_.add("acl_agent_verify_repaired_total", {}, double(repaired));
}

void AgentMetrics::exceptionIs() {
  r_.add("acl_agent_apply_exceptions_total");
}

void AgentMetrics::doRefreshPairs(const Acl::PluginView* view) {
  std::map<std::pair<std::string, std::string>, double> rules;
  double installed = 0, queued = 0, failed = 0;
  if (view) {
    for (const Acl::VipView& v : view->virtualIps()) {
      const std::string family = v.prefix.find(':') == std::string::npos ? "ipv4" : "ipv6";
      for (const Acl::VipIntfView& i : v.intfs) {
        if (i.installed) rules[{v.ns, family}] += 2;
        installed += i.installed;
        queued += i.queued;
        failed += !i.installed && !i.queued && !i.unwanted;
      }
    }
    for (const Acl::SubnetView& s : view->subnets()) rules[{s.ns, "arp"}] += 1;
  }
  r_.seriesDelAll("acl_agent_rules");
  for (const auto& [key, n] : rules) r_.setIs("acl_agent_rules", {key.first, key.second}, n);
  r_.setIs("acl_agent_pairs_installed", {}, installed);
  r_.setIs("acl_agent_pairs_queued", {}, queued);
  r_.setIs("acl_agent_pairs_failed", {}, failed);
}

void AgentMetrics::doRefresh(const Acl::PluginView* view, const ApplyStats& stats, bool ready) {
  const Acl::BacklogView backlog = view ? view->backlog() : Acl::BacklogView();
  r_.setIs("acl_agent_backlog_size", {}, double(backlog.size));
  r_.setIs("acl_agent_backlog_oldest_age_seconds", {}, backlog.size ? backlog.oldestAge : 0);
  r_.setIs("acl_agent_slices_cut_short_total", {}, double(backlog.overruns));
  for (const auto& [tool, c] : stats.perTool()) {
    r_.setIs("acl_agent_commands_total", {tool}, double(c.run));
    r_.setIs("acl_agent_command_failures_total", {tool}, double(c.failed));
  }
  r_.setIs("acl_agent_plugin_ready", {}, view ? 1 : 0);
  r_.setIs("acl_agent_ready", {}, ready ? 1 : 0);
}

std::string AgentMetrics::text(const Acl::PluginView* view, const ApplyStats& stats, bool ready,
                               bool pairs) {
  if (pairs) doRefreshPairs(view);
  doRefresh(view, stats, ready);
  return r_.text();
}

}  // namespace Agent::Metrics
