#include "platform/dravo/SocketAt.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace Dravo {

const NamespaceName DEFAULT_NS("default");

int socketAt(int family, int type, int protocol, const NamespaceName& ns) {
  if (ns == DEFAULT_NS) return ::socket(family, type, protocol);
  const std::string& name = ns.stringValue().stdString();
  if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..") return -1;
  int target = ::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
  if (target < 0) return -1;
  int home = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  int fd = -1;
  if (home >= 0 && ::setns(target, CLONE_NEWNET) == 0) {
    fd = ::socket(family, type, protocol);
    if (::setns(home, CLONE_NEWNET) != 0) {
      // Could not get back: this thread would run every later command in
      // the wrong namespace, which must never go unnoticed.
      ::abort();
    }
  }
  if (home >= 0) ::close(home);
  ::close(target);
  return fd;
}

}  // namespace Dravo
