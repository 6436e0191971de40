// --apply=batch: the rule lines of one turn of the event loop (a backlog
// slice, say) are collected per (namespace, tool, table), in order, and
// applied together when the turn ends (doApplyPending):
//   iptables / ip6tables  one `[ip netns exec NS ]TOOL-restore --noflush` per
//                         group; restore is atomic per table, so a group that
//                         fails has changed nothing and is applied again line
//                         by line, each failing line reported as at once;
//   arptables             one command per line (a stock arptables-restore
//                         replaces the whole table); an add and a later delete
//                         of the same rule in one namespace, with nothing
//                         touching that rule in between, cancel out.
// Groups are applied in the order of their first line. A line without a
// report (a start-up flush) is run at once, after everything before it.
//
// Counts in ApplyStats: each restore under its own tool (iptables-restore...),
// each line it applied under the line's tool; every line run by itself.
// Traces to the plug-in's facility: level 5 one line per applied group (size,
// time) and each cancellation. Event-loop thread only.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/apply/ApplyStats.h"
#include "agent/apply/KnownAbsent.h"
#include "agent/apply/RestoreRunner.h"
#include "platform/acl/CommandApplier.h"

namespace Agent {

class BatchApplier : public Acl::CommandApplier {
 public:
  // Runs a restore command with its input; returns a system()-style status.
  using Restore = std::function<int(const std::string& command, const std::string& input)>;

  // `absent` (may be null) must outlive the applier: a line run by itself
  // that fails but is known absent counts as succeeded.
  explicit BatchApplier(ApplyStats& stats, Restore restore = runRestore,
                        KnownAbsent* absent = nullptr)
      : stats_(stats), restore_(std::move(restore)), absent_(absent) {}
  // Takes a line with a report for later (returns 0); runs one without.
  int lineIs(const std::string& line, FailureReport report) override;
  void doApplyPending() override;

 private:
  struct Entry {
    std::string line;
    std::string rule;  // restore line; empty for a line run by itself
    FailureReport report;
    bool cancelled = false;
  };
  struct Group {
    std::string ns, tool, table;  // table empty: each line by itself
    std::vector<Entry> entries;
  };
  using GroupKey = std::tuple<std::string, std::string, std::string>;

  Group& groupFor(const std::string& ns, const std::string& tool, const std::string& table);
  // True when the line, a delete, cancelled a pending add of its rule.
  bool doCancelArpLine(const std::string& ns, std::string_view rest);
  void doApplyGroup(Group& group);
  void doApplyEach(Group& group);
  int doRun(const std::string& line);

  ApplyStats& stats_;
  Restore restore_;
  KnownAbsent* absent_;
  std::vector<Group> groups_;
  std::map<GroupKey, std::size_t> groupIndex_;
  // (namespace, arptables rule) -> (group, entry) of its add still pending.
  std::map<std::pair<std::string, std::string>, std::pair<std::size_t, std::size_t>>
      pendingArpAdds_;
};

}  // namespace Agent
