#include "agent/service/Notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace Agent::Service {

bool notify(std::string_view state) {
  const char* env = std::getenv("NOTIFY_SOCKET");
  const std::string_view name = env ? env : "";
  sockaddr_un addr = {};
  if (name.size() < 2 || name.size() >= sizeof addr.sun_path || (name[0] != '/' && name[0] != '@'))
    return false;
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path, name.data(), name.size());
  if (name[0] == '@') addr.sun_path[0] = '\0';  // abstract: no terminating NUL counts
  const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const ssize_t sent = ::sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&addr), len);
  ::close(fd);
  return sent == static_cast<ssize_t>(state.size());
}

bool notifyReloading() {
  timespec ts = {};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  const long long usec = ts.tv_sec * 1000000LL + ts.tv_nsec / 1000;
  return notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(usec));
}

}  // namespace Agent::Service
