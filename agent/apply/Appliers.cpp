#include "agent/apply/Appliers.h"

#include <cstdlib>

namespace Agent {

int PerLineApplier::lineIs(const std::string& line, FailureReport) {
  const int status = ::system(line.c_str());
  stats_.ranIs(line, status);
  return status;
}

int DryRunApplier::lineIs(const std::string& line, FailureReport) {
  out_ << line << std::endl;
  stats_.ranIs(line, 0);
  return 0;
}

}  // namespace Agent
