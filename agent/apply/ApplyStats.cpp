#include "agent/apply/ApplyStats.h"

#include <chrono>

#include "agent/apply/CommandLine.h"

namespace Agent {

void ApplyStats::ranIs(const std::string& line, int status) {
  const CommandLine c = commandLineOf(line);
  // A tool run by its path (the arptables probe) counts under its name.
  Counts& counts = perTool_[c.tool.substr(c.tool.rfind('/') + 1)];
  ++counts.run;
  if (status == 0) return;
  ++counts.failed;
  ++failedTotal_;
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  failures_.push_back({now, c.ns, line, status});
  if (failures_.size() > keptFailures) failures_.pop_front();
}

}  // namespace Agent
