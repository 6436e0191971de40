#include "tests/support/Sandbox.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

std::string failure(const char* step) {
  return std::string(step) + ": " + std::strerror(errno);
}

}  // namespace

std::string enterSandbox() {
  // Both at once: until this succeeds nothing has changed for the host.
  if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0)
    return failure("unshare(CLONE_NEWNET|CLONE_NEWNS)");
  // Mounts made from here on must not propagate back to the host.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return failure("mount --make-rprivate /");
  // A private /run: `ip netns add` (/run/netns), the agent's control socket
  // (/run/acl-agent) and the xtables lock never reach the host's.
  if (::mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0) return failure("mount tmpfs on /run");
  if (::mkdir("/run/netns", 0755) != 0) return failure("mkdir /run/netns");
  if (std::system("ip link set lo up") != 0) return "ip link set lo up failed";
  const char* path = std::getenv("PATH");
  const std::string dir = FHRP_STAND_INS_DIR;
  if (::setenv("PATH", (dir + ":" + (path ? path : "/usr/sbin:/usr/bin:/sbin:/bin")).c_str(), 1) !=
      0)
    return failure("setenv PATH");
  return std::string();
}
