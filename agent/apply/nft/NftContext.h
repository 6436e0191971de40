// A libnftables context bound to one network namespace. The context is
// made inside the namespace (the loop thread enters it with setns, makes
// the context, and goes back), so its netlink socket is bound there:
// nothing runs a process or `ip netns exec`. Each call enters the namespace
// again for its duration too, because libnftables may open its socket
// afresh (it does so when a dump was interrupted), and a socket opened
// from the agent's own namespace would change the wrong tables. The
// agent's own namespace is "default". Event-loop thread only (setns
// changes the calling thread).
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "agent/apply/nft/NftNetlink.h"

struct nft_ctx;

namespace Agent::Nft {

class Context {
 public:
  // A context in `ns`; null, with the reason in `why`, when the namespace
  // cannot be entered (it is gone, say).
  static std::unique_ptr<Context> open(const std::string& ns, std::string& why);
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  // Runs `script` as one transaction: all of it or nothing. 0 on success,
  // else non-zero with libnftables' message in error().
  int run(const std::string& script);
  // The JSON output of a list command, e.g. "list table ip acl-agent";
  // nullopt when it fails (the table is absent, say).
  std::optional<std::string> listJson(const std::string& command);
  // The namespace's netlink socket for the bulk work; null when none
  // could be opened (libnftables then does all).
  NetlinkSocket* netlink() { return netlink_.get(); }
  const std::string& error() const { return error_; }
  const std::string& ns() const { return ns_; }
  // False once /run/netns/NS is gone or names another namespace than the
  // one the context was made in (deleted and added again).
  bool current() const;
  // Which of the agent's tables (by family) are known to be in place; the
  // owner keeps it.
  std::set<int>& ready() { return ready_; }

 private:
  Context(nft_ctx* ctx, std::string ns, int fd, dev_t dev, ino_t ino);
  static nft_ctx* newContext(std::unique_ptr<NetlinkSocket>& netlink);
  class Inside;

  nft_ctx* ctx_;
  int fd_;  // the namespace, held while the context lives; -1 for "default"
  std::string ns_;
  dev_t dev_;
  ino_t ino_;
  std::string error_;
  std::set<int> ready_;
  std::unique_ptr<NetlinkSocket> netlink_;
};

// The file `ip netns` keeps for `ns`; "" for a name that cannot be one.
std::string namespacePath(const std::string& ns);

}  // namespace Agent::Nft
