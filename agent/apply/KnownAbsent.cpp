#include "agent/apply/KnownAbsent.h"

namespace Agent {

bool KnownAbsent::take(const std::string& line) {
  auto it = lines_.find(line);
  if (it == lines_.end()) return false;
  if (--it->second == 0) lines_.erase(it);
  return true;
}

}  // namespace Agent
