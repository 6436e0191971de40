// One agent per host. Two agents would each flush and rewrite the other's
// rules, whatever control socket each answers on, so every agent that runs
// commands takes this lock first: an flock on a file under /run (default
// /run/acl-agent.lock), which holds the holder's pid as a line of text.
// The kernel drops the lock when its holder exits, however it ends, so a
// stale file never keeps an agent out; the file is never removed (removing
// it would let two agents lock two different files).
//
// A dry run runs no command and takes no lock: it may run beside the agent.
#pragma once

#include <string>

namespace Agent::Service {

class HostLock {
 public:
  HostLock() = default;
  ~HostLock();  // releases the lock
  HostLock(const HostLock&) = delete;
  HostLock& operator=(const HostLock&) = delete;

  // Takes the lock at `path` without waiting. False, with the reason in
  // `why` (naming the holder's pid when another agent has it), when it
  // cannot be had.
  bool doTake(const std::string& path, std::string& why);
  bool held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

}  // namespace Agent::Service
