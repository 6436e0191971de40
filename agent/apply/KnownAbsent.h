// Plug-in delete lines known to fail because their rule is already gone.
// verify --repair registers the delete line of each rule it found missing
// before it queues the rule's pair: the plug-in's decision deletes the pair
// before it adds it again, and that one failure means the rule is gone, not
// that something is wrong. The appliers take such a failed line as success.
//
// One-shot: a line is forgiven once per registration. At most `limit` lines
// are held; beyond that a registration is dropped (the failure is then logged
// as usual). Event-loop thread only.
#pragma once

#include <map>
#include <string>

namespace Agent {

class KnownAbsent {
 public:
  static constexpr std::size_t limit = 4096;

  void lineIs(const std::string& line);
  // True (and forgotten) when `line` was registered: its failure is success.
  bool take(const std::string& line);
  std::size_t size() const { return count_; }

 private:
  std::map<std::string, std::size_t> lines_;
  std::size_t count_ = 0;
};

}  // namespace Agent
