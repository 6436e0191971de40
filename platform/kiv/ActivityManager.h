// The one-thread event loop ("activity manager"): timers and file
// descriptors, read on one clock. Everything of the agent and the plug-in
// runs on the thread that runs the loop; nothing here locks.
//
// Kiv::activityManager() is the loop in force for the process (the agent or a
// test installs one with activityManagerIs); Kiv::now() reads its clock.
#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <set>

#include "platform/kiv/Clock.h"
#include "platform/kiv/Ptr.h"

namespace Kiv {

class ActivityManager : public PtrInterface {
 public:
  using TimerId = std::uint64_t;
  using Callback = std::function<void()>;

  explicit ActivityManager(Ptr<const Clock> clock);

  Ptr<const Clock> clock() const { return clock_; }
  double now() const { return clock_->now(); }

  // One-shot timer at clock time `when`; timers due together fire in the
  // order they were set. A background timer (a client's deadline, say)
  // fires like any other but never keeps the loop from being idle.
  enum class Kind { work, background };
  TimerId timerIs(double when, Callback cb, Kind kind = Kind::work);
  void timerDel(TimerId id);
  std::size_t timerCount() const { return timers_.size(); }
  // The earliest timer's time, or +infinity.
  double nextTimerTime() const;

  // Calls cb whenever fd is readable (fdIs) or writable (fdWriteIs); one
  // callback of each kind per descriptor, a second call replaces it. An error
  // or hang-up on fd calls both. Only a readable descriptor set as work (a
  // child whose exit is awaited, say) keeps the loop from idling.
  void fdIs(int fd, Callback cb, Kind kind = Kind::background);
  void fdDel(int fd);
  void fdWriteIs(int fd, Callback cb);
  void fdWriteDel(int fd);

  // Runs cb on a later turn of the loop, never inside the caller.
  void post(Callback cb);

  // Called after every callback the loop runs (posted work, timers,
  // descriptors): the end of one unit of work, e.g. to apply what it queued.
  // One hook; a second call replaces it, an empty one removes it.
  void afterCallbackIs(Callback cb) { afterCallback_ = std::move(cb); }
  // Called before every callback the loop runs (to time each unit of work).
  void beforeCallbackIs(Callback cb) { beforeCallback_ = std::move(cb); }

  // Where an exception that escapes a callback (or the after-callback hook)
  // goes. With a handler the loop hands it the exception and goes on with
  // its next callback; without one the exception leaves the run call.
  using ErrorHandler = std::function<void(std::exception_ptr)>;
  void callbackErrorIs(ErrorHandler h) { callbackError_ = std::move(h); }

  // Runs all work that is ready now (posted work, timers due on the clock,
  // readable descriptors) until none is left; never waits. Returns how many
  // callbacks ran.
  std::size_t runUntilIdle();
  // Waits for a descriptor or the next timer, at most maxWait seconds, then
  // runs what is ready. For the real clock.
  void runOnce(double maxWait);
  // Runs until stop().
  void run();
  void stop() { stopped_ = true; }
  bool stopped() const { return stopped_; }
  // No posted work, no work timer set, no work descriptor watched.
  bool idle() const {
    return posted_.empty() && timerWhen_.size() == backgroundTimers_ && workFds_.empty();
  }

 private:
  std::size_t runReady(int pollMs);
  void doRun(Callback& cb);
  void doForget(TimerId id);

  Ptr<const Clock> clock_;
  std::multimap<std::pair<double, TimerId>, Callback> timers_;
  std::map<TimerId, double> timerWhen_;
  std::map<TimerId, bool> background_;  // the background timers still set
  std::size_t backgroundTimers_ = 0;
  std::map<int, Callback> fds_;
  std::set<int> workFds_;
  std::map<int, Callback> writeFds_;
  std::deque<Callback> posted_;
  Callback afterCallback_;
  Callback beforeCallback_;
  ErrorHandler callbackError_;
  TimerId nextTimer_ = 1;
  bool stopped_ = false;
};

Ptr<ActivityManager> activityManager();
void activityManagerIs(Ptr<ActivityManager> am);
double now();

}  // namespace Kiv

namespace Kiv {

// Which loop an activity (a timer wheel, say) runs on; null, or a null
// manager inside, means the loop in force.
class ActivityConfig : public PtrInterface {
 public:
  explicit ActivityConfig(Ptr<ActivityManager> am = nullptr) : am_(std::move(am)) {}
  Ptr<ActivityManager> activityManager() const { return am_ ? am_ : Kiv::activityManager(); }

 private:
  Ptr<ActivityManager> am_;
};

}  // namespace Kiv
