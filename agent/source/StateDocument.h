// The state document: the agent's source of the plug-in's five inputs, read
// from a JSON file and checked in full before anything is published.
//
//   {
//     "interfaces": { "Vlan10": { "device": "vlan10" } },
//     "vrfs": { "red": { "state": "active", "namespace": "ns-red" } },
//     "virtualRouterMac": { "lumo": "02:1c:73:00:00:99", "vrrp": "00:00:5e:00:01:01" },
//     "virtualIps":  [ { "vrf": "default", "address": "10.0.0.1/24", "interfaces": ["Vlan10"] } ],
//     "virtualIps6": [ { "vrf": "red", "address": "2001:db8::1", "interfaces": ["Vlan10"] } ]
//   }
//
// Every section and every field not named "required" below is optional.
// - interfaces: interface id (1 to 64 bytes, no control characters) ->
//   { "device": kernel device name (required) }.
// - vrfs: VRF name (at most 100 bytes) -> { "state": "active" (default) |
//   "inactive" | "deleting", "namespace": required, except for the VRF
//   "default", where it defaults to "default" }. No control characters.
// - virtualRouterMac: "lumo" and "vrrp", each six hex bytes, not multicast;
//   absent is zero. "lumo" must be set (not zero) when any IPv4 virtual IP
//   has a prefix length under 32: its subnet's arptables rule rewrites the
//   ARP sender MAC to it.
// - virtualIps: IPv4; "address" (required) with a prefix length of 1 to 32,
//   or without one, which means /32. virtualIps6: IPv6, an address without
//   prefix length. "vrf" defaults to "default"; any other VRF must be in
//   /vrfs (the plug-in installs only in a VRF whose status says its
//   namespace is usable). "namespace" defaults to the VRF's namespace
//   ("default" for the VRF "default").
//   "interfaces": a list of interface ids (each carries the virtual IP), or an
//   object id -> text (a non-empty text makes the pair unwanted); every id
//   must be in /interfaces. Two entries with the same VRF and address are
//   refused, for IPv4 even with different prefix lengths: the plug-in keeps
//   one record per VRF and address.
//   Never a router's own, so refused: 0.0.0.0/8, 127.0.0.0/8, multicast,
//   255.255.255.255, and under /31 the network and broadcast address of
//   the virtual IP's own subnet; for IPv6 ::, ::1, ff00::/8 and IPv4-mapped
//   addresses.
// No text anywhere may hold a NUL character.
// Namespace and device names go unquoted into the plug-in's shell command
// lines ("ip netns exec <ns> iptables ... -i <dev> ..."), so they are limited
// to [A-Za-z0-9_.@:+-], may not start with '-' (an option to ip or
// iptables) and may not be "." or "..". A device name holds neither '+'
// (an iptables wildcard) nor ':' (the kernel refuses it). Lengths: a device
// name is at most 15 bytes (the kernel's IFNAMSIZ less its NUL); a namespace
// name at most 255 (a file name under /run/netns).
// Of a JSON object with a repeated member the last one counts (the parser's
// rule).
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/dravo/EthAddr.h"
#include "platform/dravo/IntfId.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/ip/VrfStatus.h"
#include "platform/routing/VrfIpPair.h"

namespace Agent {

// A refused document: where (a JSON pointer such as "/virtualIps/1/address",
// or "line 3, column 7" for a syntax error or a number out of range; empty
// when the file cannot be read) and why. Both are one line of at most a few
// hundred bytes: control characters escaped as in JSON, echoed values cut
// to 64 bytes with "...", so a document can neither forge nor flood lines.
class StateDocumentError : public std::runtime_error {
 public:
  StateDocumentError(std::string place, std::string reason);
  const std::string& place() const { return place_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string place_;
  std::string reason_;
};

struct VrfEntry {
  Ip::VrfState state = Ip::VrfState::active;
  Dravo::NamespaceName netNs;
  friend bool operator==(const VrfEntry&, const VrfEntry&) = default;
};

// One virtual IP: its namespace and interface id -> value (empty: wanted).
struct VipEntry {
  Dravo::NamespaceName netNs;
  std::map<Dravo::IntfId, Kiv::String8> interfaces;
  friend bool operator==(const VipEntry&, const VipEntry&) = default;
};

struct StateDocument {
  std::map<Dravo::IntfId, Kiv::String8> interfaces;  // id -> device name
  std::map<L3::VrfName, VrfEntry> vrfs;
  Dravo::EthAddr lumoMac;
  Dravo::EthAddr vrrpMac;
  std::map<Routing::Fhrp::VrfIpWithMaskPair, VipEntry> virtualIps;
  std::map<Routing::Fhrp::VrfIpPair, VipEntry> virtualIps6;
  friend bool operator==(const StateDocument&, const StateDocument&) = default;
};

// Parses and checks a whole document; throws StateDocumentError.
StateDocument parseStateDocument(std::string_view text);
// Reads the file and parses it; throws StateDocumentError.
StateDocument loadStateDocument(const std::string& file);

}  // namespace Agent
