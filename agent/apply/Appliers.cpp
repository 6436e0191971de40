#include "agent/apply/Appliers.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>

#include "agent/apply/BatchApplier.h"
#include "agent/apply/nft/NftApplier.h"

namespace Agent {

namespace {

// A dry run that writes to a file of its own keeps the file open with it.
class DryRunToFile : public DryRunApplier {
 public:
  DryRunToFile(ApplyStats& stats, std::unique_ptr<std::ofstream> file)
      : DryRunApplier(stats, *file), file_(std::move(file)) {}

 private:
  std::unique_ptr<std::ofstream> file_;
};

}  // namespace

int doRunPluginLine(Runner& runner, KnownAbsent& absent, const std::string& line) {
  const int status = runner.shellLineIs(line);
  return status != 0 && absent.take(line) ? 0 : status;
}

int PerLineApplier::lineIs(const std::string& line, FailureReport) {
  return doRunPluginLine(runner_, absent_, line);
}

int DryRunApplier::lineIs(const std::string& line, FailureReport) {
  out_ << line << std::endl;
  stats_.ranIs(line, 0);
  return 0;
}

Kiv::Ptr<Acl::CommandApplier> makeApplier(const ApplyChoice& choice, Runner& runner,
                                          KnownAbsent& absent, std::string& why) {
  if (choice.dryRun && choice.dryRunFile.empty())
    return new DryRunApplier(runner.stats(), std::cout);
  if (choice.dryRun) {
    auto file = std::make_unique<std::ofstream>(choice.dryRunFile, std::ios::out | std::ios::trunc);
    if (!*file) {
      why = "--dry-run: cannot write " + choice.dryRunFile + ": " + std::strerror(errno);
      return nullptr;
    }
    return new DryRunToFile(runner.stats(), std::move(file));
  }
  if (choice.mode == ApplyChoice::Mode::batch) return new BatchApplier(runner, absent);
  if (choice.mode == ApplyChoice::Mode::nft) return new Nft::NftApplier(runner.stats(), absent);
  return new PerLineApplier(runner, absent);
}

}  // namespace Agent
