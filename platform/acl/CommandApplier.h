// How the host applies a plug-in's packet-filter command lines.
//
// A plug-in hands every command line to its one runner. With no applier in
// its PluginContext the runner calls system() for each line itself. The host
// may instead choose, once at start-up, an applier that runs, batches or only
// prints the lines; the plug-in's decisions, records and pacing never know
// which one is in use.
//
// The contract every applier keeps:
// - What the plug-in shows is the same whichever applier runs: its level-6
//   trace of each line (made by the plug-in before the line is handed over),
//   and for each line that fails one failure report (its level-0 trace and
//   log message), in the order per-line gives for the lines of one rule pair.
//   Only timing and the number of processes may differ. No line's outcome is
//   dropped: an applier never folds lines away.
// - A line taken for later is applied when the host's loop turn that took it
//   ends (doApplyPending), whoever queued it: the plug-in's timer, a control
//   request, the host's own verify or repair; or, by an applier that applies
//   in chunks, starting then, in order, before anything taken later.
// - A report is code of the plug-in: the host drains its applier
//   (doApplyAll) before it unloads any plug-in, so no report outlives
//   the code it calls.
// - An applier's own messages never use the plug-in's trace facility.
//
// Event-loop thread only. An applier never throws towards the plug-in.
#pragma once

#include <functional>
#include <string>

#include "platform/kiv/Ptr.h"

namespace Acl {

class CommandApplier : public Kiv::PtrInterface {
 public:
  // Reports the failure of a line that was taken for later, exactly as the
  // plug-in reports a failed line at once.
  using FailureReport = std::function<void()>;

  // Applies one line. Returns a system()-style status when the line ran at
  // once; 0 when it was taken for later, in which case `report` is called if
  // it fails when applied. A line without a report (a start-up flush, say)
  // always runs at once, after everything taken before it.
  virtual int lineIs(const std::string& line, FailureReport report) = 0;
  // Applies what was taken so far (see the contract above). An applier may
  // apply a big backlog in bounded chunks over several loop turns; it then
  // keeps the loop busy (posted work) until all of it is applied, in order.
  virtual void doApplyPending() {}
  // Applies everything taken so far, now: before a plug-in is unloaded.
  virtual void doApplyAll() { doApplyPending(); }

 protected:
  ~CommandApplier() override = default;
};

}  // namespace Acl
