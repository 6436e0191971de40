// What a bulk applier with lines left asks of the loop: one more turn, so
// that the host's after-callback hook calls it again. Asked once until that
// turn comes; the turn itself does nothing, and a pending one keeps the
// loop from being idle. Event-loop thread only.
#pragma once

#include <functional>
#include <memory>

namespace Agent {

class NextTurn {
 public:
  // Posts a callback to the loop; the default posts to the loop in force.
  using Post = std::function<void(std::function<void()>)>;

  explicit NextTurn(Post post = nullptr);
  void ask();

 private:
  Post post_;
  // Shared with the posted callback, which may outlive its applier.
  std::shared_ptr<bool> asked_ = std::make_shared<bool>(false);
};

}  // namespace Agent
