#include "agent/apply/BatchApplier.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>

#include "agent/apply/Appliers.h"
#include "agent/apply/CommandLine.h"
#include "agent/apply/RestoreInput.h"
#include "platform/kiv/ActivityManager.h"
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

BatchApplier::BatchApplier(Runner& runner, KnownAbsent& absent, Restore restore, double budget,
                           Post post)
    : runner_(runner),
      absent_(absent),
      restore_(std::move(restore)),
      budget_(budget),
      nextTurn_(std::move(post)) {
  if (!restore_)
    restore_ = [this](const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                      const std::string& input) {
      auto child = std::make_shared<Runner::Child>(runner_.commandStart(ns, argv, input));
      return Started{child->fd, [this, child] { return runner_.commandFinish(*child); }};
    };
}

BatchApplier::~BatchApplier() {
  // Its reports are the plug-in's code, which may be gone: only waited for.
  if (!inFlight_) return;
  if (inFlight_->run.fd >= 0) Kiv::activityManager()->fdDel(inFlight_->run.fd);
  inFlight_->run.finish();
}

int BatchApplier::lineIs(const std::string& line, FailureReport report) {
  if (!report) {
    doApplyAll();
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
  doApply(true);
}

void BatchApplier::doApplyAll() {
  doApply(false);
}

void BatchApplier::doApply(bool bounded) {
  if (inFlight_) {
    if (bounded) return;  // its exit calls again
    doFinish();
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const Clock::time_point deadline = bounded ? start + std::chrono::duration_cast<Clock::duration>(
                                                           std::chrono::duration<double>(budget_))
                                             : Clock::time_point::max();
  std::size_t alone = 0;  // lines run by themselves in this call
  // Lines taken in the turn that just ended start in the next one: that
  // turn may have been a long plug-in slice already.
  const bool fresh = taken_.empty();
  for (bool first = true;; first = false) {
    if (taken_.empty()) {
      if (groups_.empty()) break;
      // Taken first: a report may reach back into the plug-in, which may
      // queue more lines; they wait behind these.
      for (Group& g : groups_) taken_.push_back(std::move(g));
      groups_.clear();
      groupIndex_.clear();
    }
    if (bounded && ((first && fresh) || (!first && Clock::now() >= deadline))) break;
    // The step leaves the queue before it runs: its reports may queue more.
    Group& front = taken_.front();
    Group step{front.ns, front.tool, front.table, {}};
    const std::size_t n = front.table.empty() ? 1 : std::min(kStepLines, front.entries.size());
    std::move(front.entries.begin(), front.entries.begin() + std::ptrdiff_t(n),
              std::back_inserter(step.entries));
    front.entries.erase(front.entries.begin(), front.entries.begin() + std::ptrdiff_t(n));
    if (front.entries.empty()) taken_.pop_front();
    if (step.table.empty()) {
      ++alone;
      if (doRunPluginLine(runner_, absent_, step.entries.front().line) != 0)
        step.entries.front().report();
    } else {
      doApplyGroup(step, !bounded);
      if (inFlight_) break;
    }
  }
  if (alone > 0)
    BATCH_TRACE(5, "Applied " << alone << " lines one by one in " << msSince(start) << " ms");
  // A restore in flight calls again when it exits.
  if (!inFlight_ && (!taken_.empty() || !groups_.empty())) nextTurn_.ask();
}

void BatchApplier::doApplyGroup(Group& g, bool wait) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::string> rules;
  rules.reserve(g.entries.size());
  for (const Entry& e : g.entries) rules.push_back(e.rule);
  Started run = restore_(Dravo::NamespaceName(g.ns), {g.tool + "-restore", "--noflush"},
                         restoreInputOf(g.table, rules));
  if (wait || run.fd < 0) return doFinish(g, run.finish(), start);
  const int fd = run.fd;
  inFlight_ = InFlight{std::move(g), std::move(run), start};
  Kiv::activityManager()->fdIs(
      fd, [this] { doFinish(); }, Kiv::ActivityManager::Kind::work);
}

void BatchApplier::doFinish() {
  InFlight f = std::move(*inFlight_);
  inFlight_.reset();
  Kiv::activityManager()->fdDel(f.run.fd);
  doFinish(f.group, f.run.finish(), f.start);
}

void BatchApplier::doFinish(Group& g, int status, std::chrono::steady_clock::time_point start) {
  if (status == 0) {
    for (const Entry& e : g.entries) runner_.stats().ranIs(e.line, 0);
    BATCH_TRACE(5, "Applied " << g.entries.size() << " " << g.tool << " " << g.table
                              << " lines with one restore on namespace " << g.ns << " in "
                              << msSince(start) << " ms");
    return;
  }
  // Nothing of the group took effect: each line again, first, as steps of
  // their own, failures reported.
  BATCH_TRACE(5, "Restore of " << g.entries.size() << " " << g.tool << " " << g.table
                               << " lines failed on namespace " << g.ns << " after "
                               << msSince(start) << " ms; applying them one by one");
  g.table.clear();
  taken_.push_front(std::move(g));
}

}  // namespace Agent
