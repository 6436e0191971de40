#include "agent/apply/KnownAbsent.h"

namespace Agent {

void KnownAbsent::lineIs(const std::string& line) {
  if (count_ >= limit) return;
  ++lines_[line];
  ++count_;
}

bool KnownAbsent::take(const std::string& line) {
  auto it = lines_.find(line);
  if (it == lines_.end()) return false;
  if (--it->second == 0) lines_.erase(it);
  --count_;
  return true;
}

}  // namespace Agent
