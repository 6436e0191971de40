// What the agent's appliers ran: commands run and failed per tool, and the
// last failures with when, where and how they failed. Read by the control
// socket's status. Event-loop thread only.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace Agent {

class ApplyStats {
 public:
  struct Counts {
    std::uint64_t run = 0;
    std::uint64_t failed = 0;
  };
  struct Failure {
    double time;  // seconds since the epoch
    std::string ns;
    std::string line;
    int status;  // as system() returned it
  };
  static constexpr std::size_t keptFailures = 20;

  // One command line that ran with `status` (0: success).
  void ranIs(const std::string& line, int status);
  const std::map<std::string, Counts>& perTool() const { return perTool_; }
  // Oldest first; at most keptFailures.
  const std::deque<Failure>& failures() const { return failures_; }
  // Failures ever, all tools: the sequence number of the latest failure.
  std::uint64_t failedTotal() const { return failedTotal_; }

  // Time the runner spent in commands (seconds), and how many it timed.
  void spentIs(double seconds) {
    spent_ += seconds;
    ++timed_;
  }
  double spent() const { return spent_; }
  std::uint64_t timed() const { return timed_; }

 private:
  std::map<std::string, Counts> perTool_;
  std::deque<Failure> failures_;
  std::uint64_t failedTotal_ = 0;
  double spent_ = 0;
  std::uint64_t timed_ = 0;
};

}  // namespace Agent
