// The bulk of the agent's nftables work, straight over netlink (libnftnl
// builds and reads the messages, libmnl carries them): libnftables parses,
// evaluates and prints everything as text, which costs several times the
// kernel's own work.
//
// Set element changes go as one nf_tables batch; an element's key is just
// bytes (address . interface name). Each change is a message of its own:
// the kernel goes on through a batch after an error, reports every message
// it refused, and then commits nothing, so a failed batch names exactly the
// changes that fail.
//
// The ARP rules are read back by the key in their comment (NftTables.h)
// with their handles, without decoding or printing their expressions.
// Event-loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/apply/nft/NftLine.h"

struct mnl_socket;

namespace Agent::Nft {

class NetlinkSocket {
 public:
  // A netlink socket of the calling thread's network namespace: opened
  // inside a namespace, it stays bound there. Null, with the reason in
  // `why`, when none can be opened.
  static std::unique_ptr<NetlinkSocket> open(std::string& why);
  ~NetlinkSocket();
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;

  enum class Outcome {
    committed,  // every change is in place
    refused,    // nothing is: `refused` lists the changes the kernel refused
    unknown,    // nothing is known to be: no answer could be read
  };
  // Sends the changes (ip and ip6 elements only) as one transaction.
  Outcome run(const std::vector<const Change*>& changes, std::vector<std::size_t>& refused,
              std::string& error);

  // The ARP rules of the agent's arp table, (comment, handle) in chain
  // order; nullopt when they cannot be read (no table, say).
  std::optional<std::vector<std::pair<std::string, std::uint64_t>>> arpRules();

 private:
  explicit NetlinkSocket(mnl_socket* nl);
  mnl_socket* nl_;
  unsigned portId_;
  unsigned seq_ = 1;
};

}  // namespace Agent::Nft
