#include "agent/apply/BatchApplier.h"

#include <chrono>
#include <cstdlib>

#include "agent/apply/CommandLine.h"
#include "agent/apply/RestoreInput.h"
#include "platform/kiv/Trace.h"

namespace Agent {

namespace {

// The plug-in's own facility: `--trace VirtualIpArpMangleSm/5` shows the
// batches beside the rule installs they carry out.
const Kiv::TraceHandle& batchTrace() {
  static const Kiv::TraceHandle* h = new Kiv::TraceHandle("VirtualIpArpMangleSm");
  return *h;
}

#define BATCH_TRACE(level, expr) \
  KIV_TRACE_AT(batchTrace(), level, "agent/apply/BatchApplier", __func__, expr)

constexpr std::string_view quiet = " 2>/dev/null";

// "-A OUT -d ... 2>/dev/null" -> {"-A", "OUT -d ..."}.
std::pair<std::string_view, std::string_view> verbAndRule(std::string_view rest) {
  if (rest.ends_with(quiet)) rest.remove_suffix(quiet.size());
  const std::size_t blank = rest.find(' ');
  if (blank == std::string_view::npos) return {rest, {}};
  return {rest.substr(0, blank), rest.substr(blank + 1)};
}

double msSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace

int BatchApplier::lineIs(const std::string& line, FailureReport report) {
  if (!report) {
    doApplyPending();
    return doRun(line);
  }
  const CommandLine c = commandLineOf(line);
  if (c.tool == "arptables" && doCancelArpLine(c.ns, c.rest)) return 0;
  std::optional<RestoreRule> r = restoreRuleOf(line);
  Group& g = groupFor(c.ns, c.tool, r ? r->table : std::string());
  g.entries.push_back({line, r ? std::move(r->rule) : std::string(), std::move(report)});
  if (c.tool == "arptables") {
    const auto [verb, rule] = verbAndRule(c.rest);
    if (verb == "-A")
      pendingArpAdds_[{c.ns, std::string(rule)}] = {static_cast<std::size_t>(&g - groups_.data()),
                                                    g.entries.size() - 1};
  }
  return 0;
}

bool BatchApplier::doCancelArpLine(const std::string& ns, std::string_view rest) {
  const auto [verb, rule] = verbAndRule(rest);
  if (verb != "-A" && verb != "-D") {
    // Touches every rule of the namespace: no add before it may cancel.
    std::erase_if(pendingArpAdds_, [&](const auto& kv) { return kv.first.first == ns; });
    return false;
  }
  auto it = pendingArpAdds_.find({ns, std::string(rule)});
  if (it == pendingArpAdds_.end()) return false;
  // Any later line of this rule ends the add's chance to cancel; a delete
  // takes it back.
  const auto [group, entry] = it->second;
  pendingArpAdds_.erase(it);
  if (verb != "-D") return false;
  groups_[group].entries[entry].cancelled = true;
  BATCH_TRACE(5, "Cancelled arptables add and delete of " << rule << " on namespace " << ns);
  return true;
}

BatchApplier::Group& BatchApplier::groupFor(const std::string& ns, const std::string& tool,
                                            const std::string& table) {
  auto [it, fresh] = groupIndex_.try_emplace({ns, tool, table}, groups_.size());
  if (fresh) groups_.push_back({ns, tool, table, {}});
  return groups_[it->second];
}

void BatchApplier::doApplyPending() {
  if (groups_.empty()) return;
  // Taken first: a report may reach back into the plug-in.
  std::vector<Group> groups = std::move(groups_);
  groups_.clear();
  groupIndex_.clear();
  pendingArpAdds_.clear();
  for (Group& g : groups) doApplyGroup(g);
}

void BatchApplier::doApplyGroup(Group& g) {
  std::erase_if(g.entries, [](const Entry& e) { return e.cancelled; });
  if (g.entries.empty()) return;
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
  const std::string prefix = g.ns == "default" ? "" : "ip netns exec " + g.ns + " ";
  const std::string command = prefix + g.tool + "-restore --noflush" + std::string(quiet);
  const int status = restore_(command, restoreInputOf(g.table, rules));
  stats_.ranIs(command, status);
  if (status == 0) {
    for (const Entry& e : g.entries) stats_.ranIs(e.line, 0);
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
    if (doRun(e.line) != 0) e.report();
}

int BatchApplier::doRun(const std::string& line) {
  int status = ::system(line.c_str());
  if (status != 0 && absent_ && absent_->take(line)) status = 0;
  stats_.ranIs(line, status);
  return status;
}

}  // namespace Agent
