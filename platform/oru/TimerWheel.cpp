#include "platform/oru/TimerWheel.h"

#include <cmath>

#include "platform/kiv/Exception.h"

namespace Oru {

namespace {
constexpr std::uint64_t noTick = std::numeric_limits<std::uint64_t>::max();
}

TimerWheel::TimerWheel(const Kiv::Ptr<Kiv::ActivityConfig>& config,
                       const Kiv::Ptr<const Kiv::Clock>& clock, unsigned tickMsecs,
                       unsigned initialMaxTicks, bool preserveOrder, unsigned bucketCount)
    : am_(config ? config->activityManager() : Kiv::activityManager()),
      clock_(clock ? clock : am_->clock()),
      tickMsecs_(tickMsecs ? tickMsecs : 1),
      initialMaxTicks_(initialMaxTicks),
      preserveOrder_(preserveOrder),
      slots_(bucketCount ? bucketCount : 1) {
  // The tick under way when the wheel is made counts as processed.
  lastTick_ = static_cast<std::uint64_t>(std::floor(clock_->now() * 1000.0 / tickMsecs_ + 1e-9));
}

TimerWheel::~TimerWheel() {
  if (loopTimer_) am_->timerDel(loopTimer_);
}

std::uint64_t TimerWheel::tickAtOrAfter(double t) const {
  double ticks = std::ceil(t * 1000.0 / tickMsecs_ - 1e-9);
  std::uint64_t due = ticks <= 0 ? 0 : static_cast<std::uint64_t>(ticks);
  return std::max(due, lastTick_ + 1);
}

void TimerWheel::requestIs(NotifieeConst* n, double t) const {
  Request r{n, nextGeneration_++, tickAtOrAfter(t)};
  pending_[n] = r;
  slots_[r.dueTick % slots_.size()].push_back(r);
  if (r.dueTick < armedTick_) doArm();
}

void TimerWheel::requestDel(NotifieeConst* n) const {
  // Its slot entry goes stale and is dropped when the slot is next visited.
  pending_.erase(n);
}

void TimerWheel::doArm() const {
  if (loopTimer_) am_->timerDel(loopTimer_);
  loopTimer_ = 0;
  armedTick_ = noTick;
  for (auto& [n, r] : pending_) armedTick_ = std::min(armedTick_, r.dueTick);
  if (armedTick_ == noTick) return;
  double when = static_cast<double>(armedTick_) * tickMsecs_ / 1000.0;
  loopTimer_ = am_->timerIs(when, [this, tick = armedTick_] {
    loopTimer_ = 0;
    armedTick_ = noTick;
    doTick(tick);
  });
}

void TimerWheel::doTick(std::uint64_t reached) const {
  Kiv::Ptr<const TimerWheel> self(this);  // a callback may drop the last reference
  // The loop fired for `reached`, so that tick has come even where converting
  // the clock back to ticks rounds just below it.
  std::uint64_t nowTick = std::max(
      reached, static_cast<std::uint64_t>(std::floor(clock_->now() * 1000.0 / tickMsecs_ + 1e-9)));
  if (nowTick <= lastTick_) {
    doArm();
    return;
  }
  std::vector<Request> due;
  std::uint64_t span = std::min<std::uint64_t>(nowTick - lastTick_, slots_.size());
  for (std::uint64_t i = 1; i <= span; ++i) {
    std::vector<Request>& slot = slots_[(lastTick_ + i) % slots_.size()];
    std::vector<Request> keep;
    for (const Request& r : slot) {
      auto p = pending_.find(r.notifiee);
      if (p == pending_.end() || p->second.generation != r.generation) continue;  // stale
      if (r.dueTick <= nowTick)
        due.push_back(r);
      else
        keep.push_back(r);
    }
    slot.swap(keep);
  }
  lastTick_ = nowTick;
  // Due requests stay pending, marked, until their turn: a callback may
  // destroy or re-arm a notifiee later in the batch, and then it is skipped.
  for (const Request& r : due) pending_[r.notifiee].dueTick = noTick;
  for (const Request& r : due) {
    auto p = pending_.find(r.notifiee);
    if (p == pending_.end() || p->second.generation != r.generation) continue;
    pending_.erase(p);
    r.notifiee->onTime();
  }
  doArm();
}

TimerWheel::NotifieeConst::~NotifieeConst() {
  if (auto w = notifier()) w->requestDel(this);
}

void TimerWheel::NotifieeConst::notifierIs(const Kiv::Ptr<const TimerWheel>& w) {
  if (w == notifier()) return;
  if (auto old = notifier()) old->requestDel(this);
  NotifieeConstOf<TimerWheel>::notifierIs(w);
}

void TimerWheel::NotifieeConst::timeMinIs(double t) {
  Kiv::Ptr<const TimerWheel> w = Kiv::validPtr(notifier());
  w->requestIs(this, t);
}

void TimerWheel::NotifieeConst::timeMinDel() {
  if (auto w = notifier()) w->requestDel(this);
}

}  // namespace Oru
