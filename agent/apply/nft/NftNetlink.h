// The bulk of the agent's nftables work, straight over netlink (libnftnl
// builds and reads the messages, libmnl carries them): libnftables parses,
// evaluates and prints everything as text, which costs several times the
// kernel's own work.
//
// The objects are the very ones the text of NftTables.h makes (nft lists
// them the same way): libnftables would first read every table of the
// namespace into caches that cost several times the kernel's own work.
//
// Set element changes and ARP rule changes go as one nf_tables batch; an
// element's key is just bytes (address . interface name), an ARP rule is
// deleted by its handle. Each change is a message of its own: the kernel
// goes on through a batch after an error, reports every message it
// refused, and then commits nothing, so a failed batch names exactly the
// changes that fail.
//
// A family's table is made sure of (or, for a start-up flush, deleted and
// made empty) in one batch of its own: table, sets, chain, fixed rules.
//
// The ARP rules are read back by the key in their comment (NftTables.h)
// with their handles, without decoding or printing their expressions.
// Event-loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/apply/nft/NftLine.h"

struct mnl_socket;
struct nftnl_batch;

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
  // One change: an element added or deleted, an ARP rule added, or the
  // ARP rule of `handle` deleted.
  struct Step {
    const Change* change;
    std::uint64_t handle = 0;
  };
  // Sends the changes as one transaction.
  Outcome run(const std::vector<Step>& steps, std::vector<std::size_t>& refused,
              std::string& error);

  // Makes sure of the agent's table of `family` (its fixed rules made
  // again, its elements and ARP rules kept) or, with `empty`, makes it
  // again empty; one transaction (`refused`: nothing changed).
  Outcome make(Family family, bool empty, std::string& error);

  // The ARP rules of the agent's arp table, (comment, handle) in chain
  // order; nullopt when they cannot be read (no table, say).
  std::optional<std::vector<std::pair<std::string, std::uint64_t>>> arpRules();

 private:
  explicit NetlinkSocket(mnl_socket* nl);
  // Sends a finished batch and reads the answers to the messages in
  // `bySeq` (sequence number -> index); the last one asks for an answer.
  Outcome talk(nftnl_batch* batch, const std::map<unsigned, std::size_t>& bySeq, unsigned last,
               std::vector<std::size_t>& refused, std::string& error);
  mnl_socket* nl_;
  unsigned portId_;
  unsigned seq_ = 1;
};

}  // namespace Agent::Nft
