#include "agent/service/Watchdog.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "agent/service/Notify.h"

namespace Agent::Service {

namespace {
constexpr auto background = Kiv::ActivityManager::Kind::background;
}

double Watchdog::pingIntervalFromEnv() {
  const char* usec = std::getenv("WATCHDOG_USEC");
  const char* pid = std::getenv("WATCHDOG_PID");
  if (!usec || (pid && std::strtoll(pid, nullptr, 10) != ::getpid())) return 0;
  const double us = std::strtod(usec, nullptr);
  return us > 0 ? us / 2e6 : 0;
}

Watchdog::Watchdog(Kiv::ActivityManager& loop, std::function<bool()> starting)
    : loop_(loop), starting_(std::move(starting)), every_(pingIntervalFromEnv()) {
  if (every_ > 0)
    ping_ = loop_.timerIs(
        loop_.now() + every_, [this] { handlePing(); }, background);
  if (std::getenv("NOTIFY_SOCKET")) handleExtend();
}

Watchdog::~Watchdog() {
  loop_.timerDel(ping_);
  loop_.timerDel(extend_);
}

void Watchdog::handlePing() {
  notify("WATCHDOG=1");
  ping_ = loop_.timerIs(
      loop_.now() + every_, [this] { handlePing(); }, background);
}

void Watchdog::handleExtend() {
  extend_ = 0;
  if (!starting_()) return;
  notify("EXTEND_TIMEOUT_USEC=" + std::to_string(static_cast<long long>(extendBy * 1e6)));
  extend_ = loop_.timerIs(
      loop_.now() + extendEvery, [this] { handleExtend(); }, background);
}

}  // namespace Agent::Service
