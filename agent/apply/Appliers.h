// The ways the agent applies the plug-in's command lines, chosen once at
// start-up (makeApplier) and handed to the plug-in in its context; each
// keeps the contract of platform/acl/CommandApplier.h:
//   PerLineApplier  one system() per line, as the plug-in would itself;
//   BatchApplier    a loop turn's lines per restore (BatchApplier.h);
//   NftApplier      the agent's own nftables tables (nft/NftApplier.h);
//   DryRunApplier   runs nothing: writes each line and takes it as succeeded.
// They run every line through the one Runner (which counts it) and treat the
// failure of a line registered in KnownAbsent as success. Runner and
// KnownAbsent must outlive them. Event-loop thread only.
#pragma once

#include <fstream>
#include <ostream>
#include <string>

#include "agent/apply/KnownAbsent.h"
#include "agent/apply/Runner.h"
#include "platform/acl/CommandApplier.h"

namespace Agent {

// Runs one plug-in line through the runner; a failure of a known-absent
// delete counts as success.
int doRunPluginLine(Runner& runner, KnownAbsent& absent, const std::string& line);

class PerLineApplier : public Acl::CommandApplier {
 public:
  PerLineApplier(Runner& runner, KnownAbsent& absent) : runner_(runner), absent_(absent) {}
  // Runs the line at once; the plug-in reports a failure itself.
  int lineIs(const std::string& line, FailureReport report) override;

 private:
  Runner& runner_;
  KnownAbsent& absent_;
};

class DryRunApplier : public Acl::CommandApplier {
 public:
  // `out` receives one line per command, flushed at once; counted in `stats`.
  DryRunApplier(ApplyStats& stats, std::ostream& out) : stats_(stats), out_(out) {}
  int lineIs(const std::string& line, FailureReport report) override;

 private:
  ApplyStats& stats_;
  std::ostream& out_;
};

struct ApplyChoice {
  enum class Mode { perLine, batch, nft };
  Mode mode = Mode::perLine;
  bool dryRun = false;
  std::string dryRunFile;  // with dryRun: empty means stdout
};

// The applier of `choice`; null, with the reason in `why`, when it cannot be
// made (a dry-run file that cannot be written).
Kiv::Ptr<Acl::CommandApplier> makeApplier(const ApplyChoice& choice, Runner& runner,
                                          KnownAbsent& absent, std::string& why);

}  // namespace Agent
