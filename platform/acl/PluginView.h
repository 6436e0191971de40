// What a plug-in shows the host about its own work, read-only, and the two
// ways the host may ask it to repair drift between its records and the
// kernel. A plug-in registers one in its PluginContext once its state
// machine exists; the host never links the plug-in's code, so everything
// crosses as plain values. Namespaces are named as `ip netns` knows them,
// "default" for the host's own.
//
// Event-loop thread only. Reading runs no command and changes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/kiv/Ptr.h"

namespace Acl {

struct VipIntfView {
  std::string intf;
  std::string dev;         // recorded device, else the interface's current one
  bool installed = false;  // the record holds the interface
  bool queued = false;     // the pair waits in the backlog
  bool unwanted = false;   // the input's entry carries a value
};

struct VipView {
  std::string vrf;
  std::string ns;
  std::string prefix;  // address with mask ("10.0.0.1/24"), IPv6 without
  std::vector<VipIntfView> intfs;
};

struct SubnetView {
  std::string intf, subnet, dev, vrf, ns, srcIp, mac;
};

struct BacklogView {
  std::size_t size = 0;
  double oldestAge = 0;        // seconds since its oldest entry was queued
  std::uint64_t overruns = 0;  // slices cut short by their time budget
};

// One packet-filter rule as the plug-in writes it.
//   tool "iptables"/"ip6tables": target "ACCEPT" or "DROP", address, dev;
//   tool "arptables": subnet, srcIp, dev, mac.
struct RuleView {
  std::string tool, ns, target, address, dev, subnet, srcIp, mac;
  friend bool operator==(const RuleView&, const RuleView&) = default;
};

// A pair the kernel should hold (ACCEPT then DROP), and how to queue it.
struct ExpectedPair {
  std::string tool;  // "iptables" or "ip6tables"
  std::string ns, address, dev;
  std::string vrf, prefix, intf;  // the backlog entry that installs it
  bool queued = false;            // already waiting in the backlog
};

class PluginView : public Kiv::PtrInterface {
 public:
  virtual std::vector<VipView> virtualIps() const = 0;
  virtual std::vector<SubnetView> subnets() const = 0;
  virtual BacklogView backlog() const = 0;
  // Pairs wanted by the inputs in a usable VRF namespace, and recorded ones.
  virtual std::vector<ExpectedPair> expectedPairs() const = 0;
  // The arptables rules of the subnet records.
  virtual std::vector<RuleView> expectedArpRules() const = 0;
  // The comment every iptables/ip6tables rule of the plug-in carries.
  virtual std::string ruleComment() const = 0;

  // Repairs. Queues the pair in the plug-in's backlog: its usual decision
  // then removes and re-adds it. False when no such input or record exists.
  virtual bool pairQueueIs(const ExpectedPair& pair) = 0;
  // Adds a recorded arptables rule again with the plug-in's own add line
  // (the backlog leaves an unchanged subnet record alone); a failure is
  // reported as the plug-in reports it.
  virtual void arpRuleIs(const RuleView& rule) = 0;
  // Removes one rule with the plug-in's own delete line; its status.
  virtual int ruleDel(const RuleView& rule) = 0;

 protected:
  ~PluginView() override = default;
};

}  // namespace Acl
