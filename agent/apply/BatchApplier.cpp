#include "agent/apply/BatchApplier.h"

#include <chrono>

#include "agent/apply/Appliers.h"
#include "agent/apply/CommandLine.h"
#include "agent/apply/RestoreInput.h"
#include "platform/kiv/Trace.h"

namespace Agent {

namespace {

// The agent's own facility: `--trace AclAgent/5` shows the batches.
const Kiv::TraceHandle& agentTrace() {
  static const Kiv::TraceHandle* h = new Kiv::TraceHandle("AclAgent");
  return *h;
}

#define BATCH_TRACE(level, expr) \
  KIV_TRACE_AT(agentTrace(), level, "agent/apply/BatchApplier", __func__, expr)

double msSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace

BatchApplier::BatchApplier(Runner& runner, KnownAbsent& absent, Restore restore)
    : runner_(runner), absent_(absent), restore_(std::move(restore)) {
  if (!restore_)
    restore_ = [this](const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                      const std::string& input) { return runner_.commandIs(ns, argv, input); };
}

int BatchApplier::lineIs(const std::string& line, FailureReport report) {
  if (!report) {
    doApplyPending();
    return doRunPluginLine(runner_, absent_, line);
  }
  const CommandLine c = commandLineOf(line);
  std::optional<RestoreRule> r = restoreRuleOf(line);
  Group& g = groupFor(c.ns, c.tool, r ? r->table : std::string());
  g.entries.push_back({line, r ? std::move(r->rule) : std::string(), std::move(report)});
  return 0;
}

BatchApplier::Group& BatchApplier::groupFor(const std::string& ns, const std::string& tool,
                                            const std::string& table) {
  auto [it, fresh] = groupIndex_.try_emplace({ns, tool, table}, groups_.size());
  if (fresh) groups_.push_back({ns, tool, table, {}});
  return groups_[it->second];
}

void BatchApplier::doApplyPending() {
  // Taken first: a report may reach back into the plug-in, which may queue
  // more lines; they wait for the next call.
  while (!groups_.empty()) {
    std::vector<Group> groups = std::move(groups_);
    groups_.clear();
    groupIndex_.clear();
    for (Group& g : groups) doApplyGroup(g);
  }
}

void BatchApplier::doApplyGroup(Group& g) {
  const auto start = std::chrono::steady_clock::now();
  if (g.table.empty()) {
    doApplyEach(g);
    BATCH_TRACE(5, "Applied " << g.entries.size() << " " << g.tool
                              << " lines one by one on namespace " << g.ns << " in "
                              << msSince(start) << " ms");
    return;
  }
  std::vector<std::string> rules;
  rules.reserve(g.entries.size());
  for (const Entry& e : g.entries) rules.push_back(e.rule);
  const int status = restore_(Dravo::NamespaceName(g.ns), {g.tool + "-restore", "--noflush"},
                              restoreInputOf(g.table, rules));
  if (status == 0) {
    for (const Entry& e : g.entries) runner_.stats().ranIs(e.line, 0);
    BATCH_TRACE(5, "Applied " << g.entries.size() << " " << g.tool << " " << g.table
                              << " lines with one restore on namespace " << g.ns << " in "
                              << msSince(start) << " ms");
    return;
  }
  // Nothing of the group took effect: each line again, failures reported.
  doApplyEach(g);
  BATCH_TRACE(5, "Restore of " << g.entries.size() << " " << g.tool << " " << g.table
                               << " lines failed on namespace " << g.ns
                               << "; applied them one by one in " << msSince(start) << " ms");
}

void BatchApplier::doApplyEach(Group& g) {
  for (Entry& e : g.entries)
    if (doRunPluginLine(runner_, absent_, e.line) != 0) e.report();
}

}  // namespace Agent
