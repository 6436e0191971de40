// Delete lines whose rule is known to be gone already. When repair queues a
// pair again whose rule verify found missing, the plug-in's decision first
// runs its delete line for that rule; that delete can only fail, and its
// failure says nothing wrong, so it is not reported: each applier asks here
// before it counts a failed line as failed. One registration covers one
// run of the line. Event-loop thread only.
#pragma once

#include <map>
#include <string>

namespace Agent {

class KnownAbsent {
 public:
  // The plug-in's exact delete line of a rule that is missing.
  void lineIs(const std::string& line) { ++lines_[line]; }
  // True (once per registration) when `line` was registered.
  bool take(const std::string& line);
  std::size_t size() const { return lines_.size(); }

 private:
  std::map<std::string, std::size_t> lines_;
};

}  // namespace Agent
