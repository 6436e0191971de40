// --apply=batch: the rule lines of one turn of the event loop (a backlog
// slice, a repair) are collected per (namespace, tool, table), in order, and
// applied together when the turn ends (doApplyPending):
//   iptables / ip6tables  one `TOOL-restore --noflush` per group, run inside
//                         the group's namespace as words (no shell); restore
//                         is atomic per table, so a group that fails has
//                         changed nothing and is applied again line by line,
//                         each failing line reported as at once;
//   arptables             one command per line, in order (a stock
//                         arptables-restore replaces the whole table).
// Groups are applied in the order of their first line; within a group the
// lines keep their order, so a rule pair's ACCEPT stays before its DROP. No
// line is ever folded away: each line's outcome is the one per-line gives.
// A line without a report (a start-up flush) runs at once, after
// everything taken before it.
//
// Steps. Lines start in the loop turn after the one that took them (which
// may have been a long plug-in slice). A call applies in steps (a restore of
// at most kStepLines lines, or one line run by itself) until `budget` has
// passed; the rest waits, in order, and the applier posts an empty callback
// so that the host's after-callback hook calls again: a big slice never holds the loop
// for long (a status request is answered in between), and the loop is not
// idle until all of it is applied. A restore is not waited for: the loop
// goes on while it runs (a restore into a chain of 10,000 rules takes
// 60-100 ms whatever its size, as it reads the whole chain first), its exit
// is a loop event (the child's descriptor, as work), and nothing else is
// applied until it is done; the lines of a failed restore then run one by
// one as steps. doApplyAll (a flush, the drain before a plug-in is
// unloaded, a read-back) waits for it and applies everything at once.
//
// Counts (in the runner's ApplyStats): each restore under its own tool
// (iptables-restore...), each line it applied under the line's tool; every
// line run by itself. Traces to the agent's own facility "AclAgent": level 5,
// one line per applied group (size, time). Event-loop thread only.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "agent/apply/KnownAbsent.h"
#include "agent/apply/NextTurn.h"
#include "agent/apply/Runner.h"
#include "platform/acl/CommandApplier.h"

namespace Agent {

class BatchApplier : public Acl::CommandApplier {
 public:
  // A restore started: `finish` waits for it and returns its system()-style
  // status; `fd` becomes readable when it is done (-1: finish at once).
  struct Started {
    int fd = -1;
    std::function<int()> finish;
  };
  // Starts a restore (argv inside ns) with its input.
  using Restore =
      std::function<Started(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                            const std::string& input)>;

  // Asks the loop for another turn (the default posts to the loop in force).
  using Post = NextTurn::Post;
  // A restore reads the whole chain before it changes it (60-100 ms at
  // 10,000 rules, whatever its own size), so steps stay large.
  static constexpr std::size_t kStepLines = 500;
  // Seconds of applying per call: a line run by itself (arptables, say)
  // takes 10-35 ms, which a call may overrun by one line.
  static constexpr double kBudget = 0.02;

  // Without `restore`, restores go through the runner.
  BatchApplier(Runner& runner, KnownAbsent& absent, Restore restore = nullptr,
               double budget = kBudget, Post post = nullptr);
  ~BatchApplier() override;
  // Takes a line with a report for later (returns 0); runs one without.
  int lineIs(const std::string& line, FailureReport report) override;
  void doApplyPending() override;
  void doApplyAll() override;

 private:
  struct Entry {
    std::string line;
    std::string rule;  // restore line; empty for a line run by itself
    FailureReport report;
  };
  struct Group {
    std::string ns, tool, table;  // table empty: each line by itself
    std::vector<Entry> entries;
  };
  using GroupKey = std::tuple<std::string, std::string, std::string>;

  // A restore that runs while the loop goes on.
  struct InFlight {
    Group group;
    Started run;
    std::chrono::steady_clock::time_point start;
  };

  Group& groupFor(const std::string& ns, const std::string& tool, const std::string& table);
  void doApply(bool bounded);
  // Starts the group's restore; finishes it at once unless `wait` is false.
  void doApplyGroup(Group& group, bool wait);
  void doFinish();
  void doFinish(Group& group, int status, std::chrono::steady_clock::time_point start);

  Runner& runner_;
  KnownAbsent& absent_;
  Restore restore_;
  double budget_;
  NextTurn nextTurn_;
  std::vector<Group> groups_;  // taking lines
  std::map<GroupKey, std::size_t> groupIndex_;
  std::deque<Group> taken_;  // being applied
  std::optional<InFlight> inFlight_;
};

}  // namespace Agent
