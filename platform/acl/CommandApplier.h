// How the host applies a plug-in's packet-filter command lines.
//
// A plug-in hands every command line to its one runner. With no applier in
// its PluginContext the runner calls system() for each line itself. The host
// may instead choose, once at start-up, an applier that runs, batches or only
// prints the lines; the plug-in's decisions, records and pacing never know
// which one is in use.
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
  // Applies everything taken so far. The host calls it after each turn of
  // its event loop, so a plug-in's slice of work is applied together.
  virtual void doApplyPending() {}

 protected:
  ~CommandApplier() override = default;
};

}  // namespace Acl
