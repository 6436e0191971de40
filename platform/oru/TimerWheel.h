// Oru::TimerWheel: paces callbacks on ticks of a fixed length.
//
// A notifiee asks timeMinIs(t) and gets onTime() once, at the first tick at
// or after t, and never at the tick being processed when it asked (so asking
// for "now" from inside onTime means the next tick). Asking again replaces
// the earlier request. Requests hash into `bucketCount` slots by due tick.
// The wheel runs on the activity manager's loop and reads the given clock;
// it keeps one loop timer, set only while a request is pending.
// initialMaxTicks and preserveOrder are kept as the wheel's configuration.
#pragma once

#include <cstdint>
#include <limits>
#include <unordered_map>
#include <vector>

#include "platform/kiv/ActivityManager.h"
#include "platform/kiv/Entity.h"

namespace Oru {

class TimerWheel : public Kiv::Entity {
 public:
  TimerWheel(const Kiv::Ptr<Kiv::ActivityConfig>& config, const Kiv::Ptr<const Kiv::Clock>& clock,
             unsigned tickMsecs, unsigned initialMaxTicks, bool preserveOrder,
             unsigned bucketCount);

  const char* fwkTypeName() const override { return "Oru::TimerWheel"; }
  unsigned tickMsecs() const { return tickMsecs_; }
  unsigned initialMaxTicks() const { return initialMaxTicks_; }
  bool preserveOrder() const { return preserveOrder_; }
  unsigned bucketCount() const { return static_cast<unsigned>(slots_.size()); }
  const Kiv::Ptr<const Kiv::Clock>& clock() const { return clock_; }
  std::size_t pendingCount() const { return pending_.size(); }

  class NotifieeConst : public Kiv::NotifieeConstOf<TimerWheel> {
   public:
    ~NotifieeConst() override;
    void notifierIs(const Kiv::Ptr<const TimerWheel>& w) override;
    // Asks for onTime() once the wheel's clock reaches t (seconds).
    void timeMinIs(double t);
    void timeMinDel();
    virtual void onTime() {}
  };

 protected:
  ~TimerWheel() override;

 private:
  struct Request {
    NotifieeConst* notifiee;
    std::uint64_t generation;
    std::uint64_t dueTick;
  };
  void requestIs(NotifieeConst* n, double t) const;
  void requestDel(NotifieeConst* n) const;
  void doTick(std::uint64_t reached) const;
  void doArm() const;
  std::uint64_t tickAtOrAfter(double t) const;

  Kiv::Ptr<Kiv::ActivityManager> am_;
  Kiv::Ptr<const Kiv::Clock> clock_;
  unsigned tickMsecs_;
  unsigned initialMaxTicks_;
  bool preserveOrder_;
  // Mutable: notifiees observe a const wheel but may schedule on it.
  mutable std::vector<std::vector<Request>> slots_;
  mutable std::unordered_map<const NotifieeConst*, Request> pending_;
  mutable std::uint64_t lastTick_;
  mutable std::uint64_t nextGeneration_ = 1;
  mutable Kiv::ActivityManager::TimerId loopTimer_ = 0;
  mutable std::uint64_t armedTick_ = std::numeric_limits<std::uint64_t>::max();
};

}  // namespace Oru
