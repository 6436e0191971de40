// SIGTERM, SIGINT and SIGHUP as loop events: the handler only writes the
// signal's number to a pipe, and the loop calls `stop` or `reload` for it.
// One per process (the handlers are process-wide); the destructor restores
// the default handlers. Event-loop thread only.
#pragma once

#include <functional>

#include "platform/kiv/ActivityManager.h"

namespace Agent::Service {

class Signals {
 public:
  using Handler = std::function<void(int sig)>;

  // `stop` for SIGTERM and SIGINT, `reload` for SIGHUP.
  Signals(Kiv::ActivityManager& loop, Handler stop, Handler reload);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  void handleReadable();

  Kiv::ActivityManager& loop_;
  Handler stop_, reload_;
  int readFd_ = -1;
};

}  // namespace Agent::Service
