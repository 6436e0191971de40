#include "platform/kiv/ActivityManager.h"

#include <poll.h>

#include <cmath>
#include <limits>
#include <vector>

namespace Kiv {

ActivityManager::ActivityManager(Ptr<const Clock> clock) : clock_(std::move(clock)) {}

ActivityManager::TimerId ActivityManager::timerIs(double when, Callback cb, Kind kind) {
  TimerId id = nextTimer_++;
  timers_.emplace(std::make_pair(when, id), std::move(cb));
  timerWhen_[id] = when;
  if (kind == Kind::background) {
    background_[id] = true;
    ++backgroundTimers_;
  }
  return id;
}

void ActivityManager::doForget(TimerId id) {
  timerWhen_.erase(id);
  if (background_.erase(id) > 0) --backgroundTimers_;
}

void ActivityManager::timerDel(TimerId id) {
  auto w = timerWhen_.find(id);
  if (w == timerWhen_.end()) return;
  timers_.erase(std::make_pair(w->second, id));
  doForget(id);
}

double ActivityManager::nextTimerTime() const {
  return timers_.empty() ? std::numeric_limits<double>::infinity() : timers_.begin()->first.first;
}

void ActivityManager::fdIs(int fd, Callback cb, Kind kind) {
  fds_[fd] = std::move(cb);
  if (kind == Kind::work)
    workFds_.insert(fd);
  else
    workFds_.erase(fd);
}
void ActivityManager::fdDel(int fd) {
  fds_.erase(fd);
  workFds_.erase(fd);
}
void ActivityManager::fdWriteIs(int fd, Callback cb) {
  writeFds_[fd] = std::move(cb);
}
void ActivityManager::fdWriteDel(int fd) {
  writeFds_.erase(fd);
}
void ActivityManager::post(Callback cb) {
  posted_.push_back(std::move(cb));
}

void ActivityManager::doRun(Callback& cb) {
  if (beforeCallback_) beforeCallback_();
  if (!callbackError_) {
    cb();
    if (afterCallback_) afterCallback_();
    return;
  }
  try {
    cb();
  } catch (...) {
    callbackError_(std::current_exception());
  }
  // What the callback queued before it failed is still applied.
  try {
    if (afterCallback_) afterCallback_();
  } catch (...) {
    callbackError_(std::current_exception());
  }
}

std::size_t ActivityManager::runReady(int pollMs) {
  std::size_t ran = 0;
  // Posted work first, but only what was posted before this turn, so that
  // work posting work cannot starve timers.
  for (std::size_t n = posted_.size(); n > 0 && !posted_.empty(); --n) {
    Callback cb = std::move(posted_.front());
    posted_.pop_front();
    doRun(cb);
    ++ran;
  }
  const double t = now();
  while (!timers_.empty() && timers_.begin()->first.first <= t) {
    auto it = timers_.begin();
    Callback cb = std::move(it->second);
    doForget(it->first.second);
    timers_.erase(it);
    doRun(cb);
    ++ran;
  }
  if (!fds_.empty() || !writeFds_.empty()) {
    std::map<int, short> wanted;
    for (auto& [fd, cb] : fds_) wanted[fd] |= POLLIN;
    for (auto& [fd, cb] : writeFds_) wanted[fd] |= POLLOUT;
    std::vector<pollfd> pfds;
    for (auto [fd, events] : wanted) pfds.push_back({fd, events, 0});
    if (!posted_.empty()) pollMs = 0;
    if (::poll(pfds.data(), pfds.size(), pollMs) > 0) {
      // Each callback is looked up anew: an earlier one may have removed it.
      auto runFd = [&](std::map<int, Callback>& fds, int fd) {
        auto it = fds.find(fd);
        if (it == fds.end()) return;
        Callback cb = it->second;  // the callback may remove itself
        doRun(cb);
        ++ran;
      };
      for (const pollfd& p : pfds) {
        if (p.revents & (POLLIN | POLLHUP | POLLERR)) runFd(fds_, p.fd);
        if (p.revents & (POLLOUT | POLLHUP | POLLERR)) runFd(writeFds_, p.fd);
      }
    }
  }
  return ran;
}

std::size_t ActivityManager::runUntilIdle() {
  std::size_t total = 0;
  for (std::size_t ran = 1; ran > 0 && !stopped_;) {
    ran = runReady(0);
    total += ran;
  }
  return total;
}

void ActivityManager::runOnce(double maxWait) {
  double wait = std::min(maxWait, nextTimerTime() - now());
  if (!posted_.empty() || wait < 0) wait = 0;
  int ms = static_cast<int>(std::ceil(wait * 1000.0));
  if (fds_.empty() && writeFds_.empty()) {
    if (ms > 0) ::poll(nullptr, 0, ms);
    runReady(0);
  } else {
    runReady(ms);
  }
}

void ActivityManager::run() {
  stopped_ = false;
  while (!stopped_) runOnce(1.0);
}

namespace {
Ptr<ActivityManager>& current() {
  static Ptr<ActivityManager> am;
  return am;
}
}  // namespace

Ptr<ActivityManager> activityManager() {
  if (!current()) current() = new ActivityManager(new MonotonicClock());
  return current();
}

void activityManagerIs(Ptr<ActivityManager> am) {
  current() = std::move(am);
}

double now() {
  return activityManager()->now();
}

}  // namespace Kiv
