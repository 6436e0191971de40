// The ways the agent applies the plug-in's command lines (chosen once at
// start-up, handed to the plug-in in its context):
//   PerLineApplier  one system() per line, as the plug-in would itself;
//   DryRunApplier   runs nothing: writes each line and takes it as succeeded.
// Both count what they apply in the ApplyStats they are given, which must
// outlive them. Event-loop thread only.
#pragma once

#include <ostream>

#include "agent/apply/ApplyStats.h"
#include "agent/apply/KnownAbsent.h"
#include "platform/acl/CommandApplier.h"

namespace Agent {

class PerLineApplier : public Acl::CommandApplier {
 public:
  // `absent` (may be null) must outlive the applier.
  explicit PerLineApplier(ApplyStats& stats, KnownAbsent* absent = nullptr)
      : stats_(stats), absent_(absent) {}
  // Runs the line at once; the plug-in reports a failure itself. A failed
  // line known absent counts as succeeded.
  int lineIs(const std::string& line, FailureReport report) override;

 private:
  ApplyStats& stats_;
  KnownAbsent* absent_;
};

class DryRunApplier : public Acl::CommandApplier {
 public:
  // `out` receives one line per command, flushed at once.
  DryRunApplier(ApplyStats& stats, std::ostream& out) : stats_(stats), out_(out) {}
  int lineIs(const std::string& line, FailureReport report) override;

 private:
  ApplyStats& stats_;
  std::ostream& out_;
};

}  // namespace Agent
