#include "agent/apply/nft/NftContext.h"

#include <fcntl.h>
#include <nftables/libnftables.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent::Nft {

namespace {

// Closes a descriptor on the way out.
struct Fd {
  int fd;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

// Both made in the calling thread's namespace.
nft_ctx* Context::newContext(std::unique_ptr<NetlinkSocket>& netlink) {
  nft_ctx* c = ::nft_ctx_new(NFT_CTX_DEFAULT);
  if (!c) return nullptr;
  ::nft_ctx_buffer_output(c);
  ::nft_ctx_buffer_error(c);
  std::string why;
  netlink = NetlinkSocket::open(why);
  return c;
}

std::string namespacePath(const std::string& ns) {
  if (ns.empty() || ns == "." || ns == ".." || ns.find('/') != std::string::npos ||
      ns.find('\0') != std::string::npos)
    return "";
  return "/run/netns/" + ns;
}

std::unique_ptr<Context> Context::open(const std::string& ns, std::string& why) {
  std::unique_ptr<NetlinkSocket> netlink;
  if (ns == "default") {
    nft_ctx* c = newContext(netlink);
    if (!c) why = "cannot make a libnftables context";
    if (!c) return nullptr;
    std::unique_ptr<Context> out(new Context(c, ns, -1, 0, 0));
    out->netlink_ = std::move(netlink);
    return out;
  }
  const std::string path = namespacePath(ns);
  Fd target{path.empty() ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  struct stat st {};
  if (target.fd < 0 || ::fstat(target.fd, &st) != 0) {
    why = "namespace " + ns + ": " + (path.empty() ? "not a name" : std::strerror(errno));
    return nullptr;
  }
  Fd self{::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)};
  if (self.fd < 0 || ::setns(target.fd, CLONE_NEWNET) != 0) {
    why = "namespace " + ns + ": cannot enter: " + std::strerror(errno);
    return nullptr;
  }
  nft_ctx* c = newContext(netlink);
  // Back home whatever happened; staying elsewhere would misplace everything after.
  if (::setns(self.fd, CLONE_NEWNET) != 0) std::abort();
  if (!c) {
    why = "cannot make a libnftables context";
    return nullptr;
  }
  const int fd = std::exchange(target.fd, -1);
  std::unique_ptr<Context> out(new Context(c, ns, fd, st.st_dev, st.st_ino));
  out->netlink_ = std::move(netlink);
  return out;
}

// The calling thread inside the context's namespace for a scope.
class Context::Inside {
 public:
  explicit Inside(const Context& c) {
    if (c.fd_ < 0) return;
    self_.fd = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (self_.fd < 0 || ::setns(c.fd_, CLONE_NEWNET) != 0) std::abort();
  }
  ~Inside() {
    if (self_.fd >= 0 && ::setns(self_.fd, CLONE_NEWNET) != 0) std::abort();
  }

 private:
  Fd self_{-1};
};

Context::Context(nft_ctx* ctx, std::string ns, int fd, dev_t dev, ino_t ino)
    : ctx_(ctx), fd_(fd), ns_(std::move(ns)), dev_(dev), ino_(ino) {}

Context::~Context() {
  ::nft_ctx_free(ctx_);
  if (fd_ >= 0) ::close(fd_);
}

int Context::run(const std::string& script) {
  Inside in(*this);
  ::nft_ctx_output_set_flags(ctx_, 0);
  const int status = ::nft_run_cmd_from_buffer(ctx_, script.c_str());
  error_ = status == 0 ? "" : ::nft_ctx_get_error_buffer(ctx_);
  ::nft_ctx_get_output_buffer(ctx_);
  return status;
}

std::optional<std::string> Context::listJson(const std::string& command) {
  Inside in(*this);
  ::nft_ctx_output_set_flags(ctx_, NFT_CTX_OUTPUT_JSON | NFT_CTX_OUTPUT_HANDLE);
  const int status = ::nft_run_cmd_from_buffer(ctx_, command.c_str());
  ::nft_ctx_output_set_flags(ctx_, 0);
  std::string out = ::nft_ctx_get_output_buffer(ctx_);
  error_ = status == 0 ? "" : ::nft_ctx_get_error_buffer(ctx_);
  if (status != 0) return std::nullopt;
  return out;
}

bool Context::current() const {
  if (ns_ == "default") return true;
  struct stat st {};
  return ::stat(namespacePath(ns_).c_str(), &st) == 0 && st.st_dev == dev_ && st.st_ino == ino_;
}

}  // namespace Agent::Nft
