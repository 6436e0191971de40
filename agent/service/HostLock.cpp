#include "agent/service/HostLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Agent::Service {

HostLock::~HostLock() {
  if (fd_ >= 0) ::close(fd_);
}

bool HostLock::doTake(const std::string& path, std::string& why) {
  // Close-on-exec: a command's shell must not inherit, and so outlive, the lock.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    why = path + ": cannot open the lock file: " + std::strerror(errno);
    return false;
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int err = errno;
    char buf[32] = {};
    const ssize_t n = ::pread(fd, buf, sizeof buf - 1, 0);
    ::close(fd);
    if (err != EWOULDBLOCK) {
      why = path + ": cannot lock: " + std::strerror(err);
      return false;
    }
    std::string pid(buf, std::size_t(n > 0 ? n : 0));
    pid = pid.substr(0, pid.find_first_not_of("0123456789"));
    why = "another agent runs on this host (" +
          (pid.empty() ? std::string("its pid is not written yet") : "pid " + pid) + ", holding " +
          path + ")";
    return false;
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != ssize_t(pid.size())) {
    why = path + ": cannot write the pid: " + std::strerror(errno);
    ::close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

}  // namespace Agent::Service
