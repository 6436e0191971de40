#include "agent/apply/Appliers.h"

#include <cstdlib>

namespace Agent {

int PerLineApplier::lineIs(const std::string& line, FailureReport) {
  int status = ::system(line.c_str());
  if (status != 0 && absent_ && absent_->take(line)) status = 0;
  stats_.ranIs(line, status);
  return status;
}

int DryRunApplier::lineIs(const std::string& line, FailureReport) {
  out_ << line << std::endl;
  stats_.ranIs(line, 0);
  return 0;
}

}  // namespace Agent
