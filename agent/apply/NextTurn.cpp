#include "agent/apply/NextTurn.h"

#include "platform/kiv/ActivityManager.h"

namespace Agent {

NextTurn::NextTurn(Post post) : post_(std::move(post)) {
  if (!post_) post_ = [](std::function<void()> cb) { Kiv::activityManager()->post(std::move(cb)); };
}

void NextTurn::ask() {
  if (*asked_) return;
  *asked_ = true;
  post_([asked = asked_] { *asked = false; });
}

}  // namespace Agent
