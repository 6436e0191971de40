#include "agent/apply/nft/NftNetlink.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/batch.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter_arp.h>
#include <linux/netfilter_ipv4.h>
#include <net/if.h>
#include <netinet/ether.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <new>

#include "agent/apply/nft/NftTables.h"

namespace Agent::Nft {

namespace {

// Replies to a batch of 2,000 changes that all fail, with room to spare.
constexpr int kReceiveBuffer = 4 << 20;
// nft's own numbers for the key types (its datatype ids, six bits each in
// a concatenation).
constexpr std::uint32_t kIpv4Addr = 7, kIpv6Addr = 8, kIfname = 41;

template <class T, void (*Free)(const T*)>
struct Freed {
  void operator()(T* p) const { Free(p); }
};
using Table = std::unique_ptr<nftnl_table, Freed<nftnl_table, ::nftnl_table_free>>;
using Chain = std::unique_ptr<nftnl_chain, Freed<nftnl_chain, ::nftnl_chain_free>>;
using Rule = std::unique_ptr<nftnl_rule, Freed<nftnl_rule, ::nftnl_rule_free>>;
using Set = std::unique_ptr<nftnl_set, Freed<nftnl_set, ::nftnl_set_free>>;

// Out of memory is the one failure of building a message; it ends the batch.
template <class P>
P made(P p) {
  if (!p) throw std::bad_alloc();
  return p;
}

std::uint16_t protoOf(Family f) {
  return f == Family::ip ? NFPROTO_IPV4 : f == Family::ip6 ? NFPROTO_IPV6 : NFPROTO_ARP;
}

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

// One transaction being written: a message per change, each under its own
// sequence number, so that the kernel's answers name the change.
class Writer {
 public:
  explicit Writer(unsigned& seq)
      : batch_(made(::nftnl_batch_alloc(::getpagesize() * 32, MNL_SOCKET_BUFFER_SIZE))), seq_(seq) {
    ::nftnl_batch_begin(buffer(), seq_++);
    ::nftnl_batch_update(batch_);
  }
  ~Writer() { ::nftnl_batch_free(batch_); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // `build` writes `object` as the payload of message `index`.
  template <class Build, class Object>
  void message(std::uint16_t type, Family f, std::uint16_t flags, Build build, Object* object,
               std::size_t index) {
    const unsigned seq = seq_++;
    last_ = ::nftnl_nlmsg_build_hdr(buffer(), type, protoOf(f), flags, seq);
    build(last_, object);
    bySeq_[seq] = index;
    if (::nftnl_batch_update(batch_) != 0) throw std::bad_alloc();
  }
  // Ends the batch; the last message asks for an answer, whose arrival
  // says that the kernel went through all of it.
  nftnl_batch* done() {
    if (last_) last_->nlmsg_flags |= NLM_F_ACK;
    ::nftnl_batch_end(buffer(), seq_++);
    ::nftnl_batch_update(batch_);
    return batch_;
  }
  const std::map<unsigned, std::size_t>& bySeq() const { return bySeq_; }
  unsigned last() const { return last_ ? last_->nlmsg_seq : 0; }

 private:
  char* buffer() { return static_cast<char*>(::nftnl_batch_buffer(batch_)); }
  nftnl_batch* batch_;
  unsigned& seq_;
  nlmsghdr* last_ = nullptr;
  std::map<unsigned, std::size_t> bySeq_;
};

// The expressions nft makes for the rule texts of NftTables.cpp.
void expr(nftnl_rule* r, const char* name, const std::function<void(nftnl_expr*)>& fill) {
  nftnl_expr* e = made(::nftnl_expr_alloc(name));
  fill(e);
  ::nftnl_rule_add_expr(r, e);
}

void payload(nftnl_rule* r, std::uint32_t offset, std::uint32_t len) {
  expr(r, "payload", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_DREG, NFT_REG32_00);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_NETWORK_HEADER);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_LEN, len);
  });
}

void meta(nftnl_rule* r, std::uint32_t key, std::uint32_t reg) {
  expr(r, "meta", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_META_KEY, key);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_META_DREG, reg);
  });
}

void equal(nftnl_rule* r, const void* data, std::uint32_t len) {
  expr(r, "cmp", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_CMP_SREG, NFT_REG32_00);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_CMP_OP, NFT_CMP_EQ);
    ::nftnl_expr_set(e, NFTNL_EXPR_CMP_DATA, data, len);
  });
}

// Writes `len` bytes of `data` into the packet at `offset`.
void rewrite(nftnl_rule* r, const void* data, std::uint32_t len, std::uint32_t offset) {
  expr(r, "immediate", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_IMM_DREG, NFT_REG32_00);
    ::nftnl_expr_set(e, NFTNL_EXPR_IMM_DATA, data, len);
  });
  expr(r, "payload", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_SREG, NFT_REG32_00);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_NETWORK_HEADER);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_PAYLOAD_LEN, len);
  });
}

Rule ruleIn(const char* chain) {
  Rule r(made(::nftnl_rule_alloc()));
  ::nftnl_rule_set_str(r.get(), NFTNL_RULE_TABLE, kTable);
  ::nftnl_rule_set_str(r.get(), NFTNL_RULE_CHAIN, chain);
  return r;
}

// Packets whose (destination, input interface) is in `set`, of ICMP (of
// that family) only when `icmp`: `verdict`.
Rule fixedRule(Family f, bool icmp, const char* set, std::uint32_t setId, int verdict) {
  Rule r = ruleIn("prerouting");
  const bool v4 = f == Family::ip;
  if (icmp) {
    if (v4)
      payload(r.get(), 9, 1);  // ip protocol
    else
      meta(r.get(), NFT_META_L4PROTO, NFT_REG32_00);
    const std::uint8_t proto = v4 ? std::uint8_t(IPPROTO_ICMP) : std::uint8_t(IPPROTO_ICMPV6);
    equal(r.get(), &proto, sizeof proto);
  }
  payload(r.get(), v4 ? 16 : 24, v4 ? 4 : 16);  // daddr
  meta(r.get(), NFT_META_IIFNAME, NFT_REG32_00 + (v4 ? 1 : 4));
  expr(r.get(), "lookup", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_LOOKUP_SREG, NFT_REG32_00);
    ::nftnl_expr_set_str(e, NFTNL_EXPR_LOOKUP_SET, set);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_LOOKUP_SET_ID, setId);
  });
  expr(r.get(), "counter", [](nftnl_expr*) {});
  expr(r.get(), "immediate", [&](nftnl_expr* e) {
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    ::nftnl_expr_set_u32(e, NFTNL_EXPR_IMM_VERDICT, std::uint32_t(verdict));
  });
  return r;
}

// The ARP rule of a change, with its key as comment; null for text that
// cannot be one (NftLine.h checks it before).
Rule arpRule(const Change& c) {
  in_addr subnet{}, source{};
  ether_addr hw{};
  const std::size_t slash = c.subnet.find('/');
  if (slash == std::string::npos || !::ether_aton_r(c.mac.c_str(), &hw) ||
      ::inet_pton(AF_INET, c.subnet.substr(0, slash).c_str(), &subnet) != 1 ||
      ::inet_pton(AF_INET, c.address.c_str(), &source) != 1 || c.dev.size() >= IFNAMSIZ)
    return nullptr;
  const int len = std::atoi(c.subnet.c_str() + slash + 1);
  const std::uint32_t mask = htonl(len <= 0 ? 0 : len >= 32 ? ~0u : ~0u << (32 - len));
  subnet.s_addr &= mask;

  Rule r = ruleIn("output");
  const std::uint16_t request = htons(1);
  payload(r.get(), 6, 2);  // arp operation
  equal(r.get(), &request, sizeof request);
  const std::uint8_t hlen = 6;
  payload(r.get(), 4, 1);  // arp hlen
  equal(r.get(), &hlen, sizeof hlen);
  // arp daddr ip: whole bytes of a prefix are compared as they are, any
  // other prefix through its mask.
  if (len > 0 && len % 8 == 0) {
    payload(r.get(), 24, std::uint32_t(len / 8));
  } else {
    payload(r.get(), 24, 4);
    const std::uint32_t zero = 0;
    expr(r.get(), "bitwise", [&](nftnl_expr* e) {
      ::nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_SREG, NFT_REG32_00);
      ::nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_DREG, NFT_REG32_00);
      ::nftnl_expr_set_u32(e, NFTNL_EXPR_BITWISE_LEN, 4);
      ::nftnl_expr_set(e, NFTNL_EXPR_BITWISE_MASK, &mask, 4);
      ::nftnl_expr_set(e, NFTNL_EXPR_BITWISE_XOR, &zero, 4);
    });
  }
  equal(r.get(), &subnet.s_addr, len > 0 && len % 8 == 0 ? std::uint32_t(len / 8) : 4);
  char dev[IFNAMSIZ] = {};
  std::memcpy(dev, c.dev.data(), c.dev.size());
  meta(r.get(), NFT_META_OIFNAME, NFT_REG32_00);
  equal(r.get(), dev, sizeof dev);
  rewrite(r.get(), hw.ether_addr_octet, sizeof hw.ether_addr_octet, 8);  // arp saddr ether
  rewrite(r.get(), &source.s_addr, sizeof source.s_addr, 14);            // arp saddr ip

  std::unique_ptr<nftnl_udata_buf, void (*)(const nftnl_udata_buf*)> data(
      made(::nftnl_udata_buf_alloc(NFT_USERDATA_MAXLEN)), ::nftnl_udata_buf_free);
  if (!::nftnl_udata_put_strz(data.get(), NFTNL_UDATA_RULE_COMMENT, arpKey(c).c_str()))
    return nullptr;
  ::nftnl_rule_set_data(r.get(), NFTNL_RULE_USERDATA, ::nftnl_udata_buf_data(data.get()),
                        ::nftnl_udata_buf_len(data.get()));
  return r;
}

// Writes one change as message `index`; false for a change that cannot be written.
bool write(Writer& w, const NetlinkSocket::Step& step, std::size_t index) {
  const Change& c = *step.change;
  if (c.family == Family::arp && c.op == Op::del) {
    Rule r = ruleIn("output");
    ::nftnl_rule_set_u64(r.get(), NFTNL_RULE_HANDLE, step.handle);
    w.message(NFT_MSG_DELRULE, c.family, 0, ::nftnl_rule_nlmsg_build_payload, r.get(), index);
    return true;
  }
  if (c.family == Family::arp) {
    Rule r = arpRule(c);
    if (!r) return false;
    w.message(NFT_MSG_NEWRULE, c.family, NLM_F_CREATE | NLM_F_APPEND,
              ::nftnl_rule_nlmsg_build_payload, r.get(), index);
    return true;
  }
  unsigned char key[32];
  std::size_t size = 0;
  if (!keyOf(c, key, size)) return false;
  Set set(made(::nftnl_set_alloc()));
  nftnl_set_elem* e = made(::nftnl_set_elem_alloc());
  ::nftnl_set_elem_set(e, NFTNL_SET_ELEM_KEY, key, size);
  ::nftnl_set_elem_add(set.get(), e);
  ::nftnl_set_set_str(set.get(), NFTNL_SET_TABLE, kTable);
  ::nftnl_set_set_str(set.get(), NFTNL_SET_NAME,
                      c.verdict == Verdict::accept ? "accept_icmp" : "drop_all");
  w.message(c.op == Op::add ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM, c.family,
            c.op == Op::add ? NLM_F_CREATE : 0, ::nftnl_set_elems_nlmsg_build_payload, set.get(),
            index);
  return true;
}

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

NetlinkSocket::Outcome NetlinkSocket::run(const std::vector<Step>& steps,
                                          std::vector<std::size_t>& refused, std::string& error) {
  refused.clear();
  error.clear();
  try {
    Writer w(seq_);
    for (std::size_t i = 0; i < steps.size(); ++i)
      if (!write(w, steps[i], i)) refused.push_back(i);
    // What cannot be written is refused before anything is sent.
    if (!refused.empty()) return Outcome::refused;
    if (w.bySeq().empty()) return Outcome::committed;
    return talk(w.done(), w.bySeq(), w.last(), refused, error);
  } catch (const std::bad_alloc&) {
    return error = "out of memory", Outcome::unknown;
  }
}

NetlinkSocket::Outcome NetlinkSocket::make(Family f, bool empty, std::string& error) {
  error.clear();
  try {
    Writer w(seq_);
    std::size_t n = 0;
    Table table(made(::nftnl_table_alloc()));
    ::nftnl_table_set_str(table.get(), NFTNL_TABLE_NAME, kTable);
    // Made sure of first, so that a delete cannot fail on an absent table.
    w.message(NFT_MSG_NEWTABLE, f, NLM_F_CREATE, ::nftnl_table_nlmsg_build_payload, table.get(),
              n++);
    if (empty) {
      w.message(NFT_MSG_DELTABLE, f, 0, ::nftnl_table_nlmsg_build_payload, table.get(), n++);
      w.message(NFT_MSG_NEWTABLE, f, NLM_F_CREATE, ::nftnl_table_nlmsg_build_payload, table.get(),
                n++);
    }
    const bool v4 = f == Family::ip;
    std::uint32_t id = 0;
    if (f != Family::arp)
      for (const char* name : {"accept_icmp", "drop_all"}) {
        Set s(made(::nftnl_set_alloc()));
        ::nftnl_set_set_str(s.get(), NFTNL_SET_TABLE, kTable);
        ::nftnl_set_set_str(s.get(), NFTNL_SET_NAME, name);
        ::nftnl_set_set_u32(s.get(), NFTNL_SET_ID, ++id);
        ::nftnl_set_set_u32(s.get(), NFTNL_SET_KEY_TYPE,
                            (v4 ? kIpv4Addr : kIpv6Addr) << 6 | kIfname);
        ::nftnl_set_set_u32(s.get(), NFTNL_SET_KEY_LEN, (v4 ? 4 : 16) + IFNAMSIZ);
        w.message(NFT_MSG_NEWSET, f, NLM_F_CREATE, ::nftnl_set_nlmsg_build_payload, s.get(), n++);
      }
    const char* name = f == Family::arp ? "output" : "prerouting";
    Chain chain(made(::nftnl_chain_alloc()));
    ::nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TABLE, kTable);
    ::nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_NAME, name);
    ::nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TYPE, "filter");
    ::nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_HOOKNUM,
                          f == Family::arp ? NF_ARP_OUT : NF_INET_PRE_ROUTING);
    // Priorities "filter" and "mangle".
    ::nftnl_chain_set_s32(chain.get(), NFTNL_CHAIN_PRIO, f == Family::arp ? 0 : NF_IP_PRI_MANGLE);
    ::nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_POLICY, NF_ACCEPT);
    w.message(NFT_MSG_NEWCHAIN, f, NLM_F_CREATE, ::nftnl_chain_nlmsg_build_payload, chain.get(),
              n++);
    if (f != Family::arp) {
      // The fixed rules made again: whatever the chain holds goes first.
      Rule all = ruleIn(name);
      if (!empty)
        w.message(NFT_MSG_DELRULE, f, 0, ::nftnl_rule_nlmsg_build_payload, all.get(), n++);
      Rule accept = fixedRule(f, true, "accept_icmp", 1, NF_ACCEPT);
      Rule drop = fixedRule(f, false, "drop_all", 2, NF_DROP);
      for (Rule* r : {&accept, &drop})
        w.message(NFT_MSG_NEWRULE, f, NLM_F_CREATE | NLM_F_APPEND, ::nftnl_rule_nlmsg_build_payload,
                  r->get(), n++);
    }
    std::vector<std::size_t> refused;
    return talk(w.done(), w.bySeq(), w.last(), refused, error);
  } catch (const std::bad_alloc&) {
    return error = "out of memory", Outcome::unknown;
  }
}

NetlinkSocket::Outcome NetlinkSocket::talk(nftnl_batch* batch,
                                           const std::map<unsigned, std::size_t>& bySeq,
                                           unsigned last, std::vector<std::size_t>& refused,
                                           std::string& error) {
  std::vector<iovec> iov(::nftnl_batch_iovec_len(batch));
  ::nftnl_batch_iovec(batch, iov.data(), iov.size());
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
