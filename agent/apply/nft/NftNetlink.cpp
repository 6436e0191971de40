#include "agent/apply/nft/NftNetlink.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/batch.h>
#include <libnftnl/common.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "agent/apply/nft/NftTables.h"

namespace Agent::Nft {

namespace {

// Replies to a batch of 2,000 changes that all fail, with room to spare.
constexpr int kReceiveBuffer = 4 << 20;

// The set's key: the address, then the interface name in IFNAMSIZ bytes,
// as `ipv4_addr . ifname` lays them out. False for text that is neither.
bool keyOf(const Change& c, unsigned char (&key)[32], std::size_t& size) {
  std::memset(key, 0, sizeof key);
  const bool v4 = c.family == Family::ip;
  const std::size_t addr = v4 ? 4 : 16;
  if (c.family == Family::arp || c.dev.size() >= IFNAMSIZ ||
      ::inet_pton(v4 ? AF_INET : AF_INET6, c.address.c_str(), key) != 1)
    return false;
  std::memcpy(key + addr, c.dev.data(), c.dev.size());
  size = addr + IFNAMSIZ;
  return true;
}

struct Batch {
  // Pages of 32 memory pages, each with room for one more message.
  Batch() : b(::nftnl_batch_alloc(::getpagesize() * 32, MNL_SOCKET_BUFFER_SIZE)) {}
  ~Batch() {
    if (b) ::nftnl_batch_free(b);
  }
  nftnl_batch* b;
};

struct Set {
  Set() : s(::nftnl_set_alloc()) {}
  ~Set() {
    if (s) ::nftnl_set_free(s);
  }
  nftnl_set* s;
};

}  // namespace

std::unique_ptr<NetlinkSocket> NetlinkSocket::open(std::string& why) {
  mnl_socket* nl = ::mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
  if (!nl || ::mnl_socket_bind(nl, 0, MNL_SOCKET_AUTOPID) != 0) {
    why = std::string("netlink socket: ") + std::strerror(errno);
    if (nl) ::mnl_socket_close(nl);
    return nullptr;
  }
  const int fd = ::mnl_socket_get_fd(nl);
  // Root may go past the system's limit; without it the limit must do.
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof kReceiveBuffer) != 0)
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  int on = 1;  // errors without the refused message's payload
  ::mnl_socket_setsockopt(nl, NETLINK_CAP_ACK, &on, sizeof on);
  return std::unique_ptr<NetlinkSocket>(new NetlinkSocket(nl));
}

NetlinkSocket::NetlinkSocket(mnl_socket* nl) : nl_(nl), portId_(::mnl_socket_get_portid(nl)) {}

NetlinkSocket::~NetlinkSocket() {
  ::mnl_socket_close(nl_);
}

NetlinkSocket::Outcome NetlinkSocket::run(const std::vector<const Change*>& changes,
                                          std::vector<std::size_t>& refused, std::string& error) {
  refused.clear();
  error.clear();
  Batch batch;
  if (!batch.b) return error = "out of memory", Outcome::unknown;
  std::map<unsigned, std::size_t> bySeq;
  ::nftnl_batch_begin(static_cast<char*>(::nftnl_batch_buffer(batch.b)), seq_++);
  ::nftnl_batch_update(batch.b);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const Change& c = *changes[i];
    unsigned char key[32];
    std::size_t size = 0;
    if (!keyOf(c, key, size)) {
      refused.push_back(i);
      continue;
    }
    Set set;
    nftnl_set_elem* e = ::nftnl_set_elem_alloc();
    if (!set.s || !e) return error = "out of memory", Outcome::unknown;
    ::nftnl_set_set_str(set.s, NFTNL_SET_TABLE, kTable);
    ::nftnl_set_set_str(set.s, NFTNL_SET_NAME,
                        c.verdict == Verdict::accept ? "accept_icmp" : "drop_all");
    ::nftnl_set_elem_set(e, NFTNL_SET_ELEM_KEY, key, size);
    ::nftnl_set_elem_add(set.s, e);
    // The last message asks for an answer: its arrival says the kernel
    // went through the whole batch.
    const std::uint16_t flags =
        (c.op == Op::add ? NLM_F_CREATE : 0) | (i + 1 == changes.size() ? NLM_F_ACK : 0);
    const unsigned seq = seq_++;
    nlmsghdr* nlh =
        ::nftnl_nlmsg_build_hdr(static_cast<char*>(::nftnl_batch_buffer(batch.b)),
                                c.op == Op::add ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM,
                                c.family == Family::ip ? NFPROTO_IPV4 : NFPROTO_IPV6, flags, seq);
    ::nftnl_set_elems_nlmsg_build_payload(nlh, set.s);
    if (::nftnl_batch_update(batch.b) != 0) return error = "out of memory", Outcome::unknown;
    bySeq[seq] = i;
  }
  // What cannot be written is refused before anything is sent.
  if (!refused.empty()) return Outcome::refused;
  if (bySeq.empty()) return Outcome::committed;
  const unsigned last = seq_ - 1;
  ::nftnl_batch_end(static_cast<char*>(::nftnl_batch_buffer(batch.b)), seq_++);
  ::nftnl_batch_update(batch.b);

  std::vector<iovec> iov(::nftnl_batch_iovec_len(batch.b));
  ::nftnl_batch_iovec(batch.b, iov.data(), iov.size());
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  msghdr msg{};
  msg.msg_name = &kernel;
  msg.msg_namelen = sizeof kernel;
  msg.msg_iov = iov.data();
  msg.msg_iovlen = iov.size();
  const int fd = ::mnl_socket_get_fd(nl_);
  std::size_t bytes = 0;
  for (const iovec& v : iov) bytes += v.iov_len;
  const int sndbuf = int(bytes) + (1 << 16);
  if (::setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &sndbuf, sizeof sndbuf) != 0)
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
  if (::sendmsg(fd, &msg, 0) < 0)
    return error = std::string("netlink send: ") + std::strerror(errno), Outcome::unknown;

  // The kernel works through a batch inside sendmsg: every answer is
  // queued by now.
  bool done = false;
  char buf[MNL_SOCKET_BUFFER_SIZE];
  for (;;) {
    const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (n < 0)
      return error = std::string("netlink receive: ") + std::strerror(errno), Outcome::unknown;
    int left = int(n);
    for (auto* nlh = reinterpret_cast<const nlmsghdr*>(buf); ::mnl_nlmsg_ok(nlh, left);
         nlh = ::mnl_nlmsg_next(nlh, &left)) {
      if (nlh->nlmsg_type != NLMSG_ERROR || nlh->nlmsg_pid != portId_) continue;
      const auto* err = static_cast<const nlmsgerr*>(::mnl_nlmsg_get_payload(nlh));
      auto it = bySeq.find(nlh->nlmsg_seq);
      if (it == bySeq.end()) continue;
      if (nlh->nlmsg_seq == last) done = true;
      if (err->error != 0) {
        refused.push_back(it->second);
        if (error.empty()) error = std::strerror(-err->error);
      }
    }
  }
  if (!done) return error = "no answer to the batch", Outcome::unknown;
  std::sort(refused.begin(), refused.end());
  return refused.empty() ? Outcome::committed : Outcome::refused;
}

namespace {

using Listed = std::vector<std::pair<std::string, std::uint64_t>>;

int commentOf(const nftnl_udata* attr, void* data) {
  if (::nftnl_udata_type(attr) == NFTNL_UDATA_RULE_COMMENT && ::nftnl_udata_len(attr) > 0) {
    const char* text = static_cast<const char*>(::nftnl_udata_get(attr));
    static_cast<std::string*>(data)->assign(text, ::strnlen(text, ::nftnl_udata_len(attr)));
  }
  return MNL_CB_OK;
}

int ruleOf(const nlmsghdr* nlh, void* data) {
  // A dump the ruleset changed under cannot be trusted.
  if (nlh->nlmsg_flags & NLM_F_DUMP_INTR) return MNL_CB_ERROR;
  nftnl_rule* r = ::nftnl_rule_alloc();
  if (!r || ::nftnl_rule_nlmsg_parse(nlh, r) < 0) {
    if (r) ::nftnl_rule_free(r);
    return MNL_CB_ERROR;
  }
  std::string comment;
  std::uint32_t size = 0;
  const void* udata = ::nftnl_rule_get_data(r, NFTNL_RULE_USERDATA, &size);
  if (udata) ::nftnl_udata_parse(udata, size, commentOf, &comment);
  static_cast<Listed*>(data)->emplace_back(comment, ::nftnl_rule_get_u64(r, NFTNL_RULE_HANDLE));
  ::nftnl_rule_free(r);
  return MNL_CB_OK;
}

}  // namespace

std::optional<Listed> NetlinkSocket::arpRules() {
  char buf[MNL_SOCKET_BUFFER_SIZE];
  const unsigned seq = seq_++;
  nlmsghdr* nlh = ::nftnl_nlmsg_build_hdr(buf, NFT_MSG_GETRULE, NFPROTO_ARP, NLM_F_DUMP, seq);
  nftnl_rule* filter = ::nftnl_rule_alloc();
  if (!filter) return std::nullopt;
  ::nftnl_rule_set_str(filter, NFTNL_RULE_TABLE, kTable);
  ::nftnl_rule_set_str(filter, NFTNL_RULE_CHAIN, "output");
  ::nftnl_rule_nlmsg_build_payload(nlh, filter);
  ::nftnl_rule_free(filter);
  if (::mnl_socket_sendto(nl_, nlh, nlh->nlmsg_len) < 0) return std::nullopt;
  Listed out;
  for (;;) {
    const ssize_t n = ::mnl_socket_recvfrom(nl_, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    const int r = ::mnl_cb_run(buf, std::size_t(n), seq, portId_, ruleOf, &out);
    if (r < 0) {
      // Whatever is left of a failed dump is read and dropped.
      while (::recv(::mnl_socket_get_fd(nl_), buf, sizeof buf, MSG_DONTWAIT) > 0) {
      }
      return std::nullopt;
    }
    if (r == MNL_CB_STOP) return out;
  }
}

}  // namespace Agent::Nft
