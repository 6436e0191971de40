// What a plug-in shows the host about its own work, read-only, and the two
// ways the host may ask it to repair drift between its records and the
// kernel. A plug-in registers one in its PluginContext once its state
// machine exists; the host never links the plug-in's code, so everything
// crosses as plain strings: the host compares rules only as the opaque keys
// the plug-in makes, and never learns what a rule means. Namespaces are
// named as `ip netns` knows them, "default" for the host's own.
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

// A unit of the plug-in's work that installs rules, and how to queue it.
struct ExpectedPair {
  std::string ns, dev;
  std::string vrf, prefix, intf;  // the plug-in's own words for it
  bool queued = false;            // already waiting: on its way, never "missing"
  bool installed = false;         // recorded as installed
};

// One rule the kernel should hold.
struct ExpectedRule {
  std::string tool, ns;
  std::string key;         // the whole rule as the plug-in's listing parser keys it
  std::string deleteLine;  // the plug-in's own command line that deletes it
  int pair = -1;           // index in Expected::pairs; -1: repaired by ruleIs()
  bool first = false;      // must stand before every other rule of its pair
};

struct Expected {
  std::vector<ExpectedPair> pairs;
  std::vector<ExpectedRule> rules;
  // Every namespace the plug-in may hold rules in now, "default" included.
  std::vector<std::string> namespaces;
};

// One rule of a listing that is the plug-in's kind (it would flush it).
struct ListedRule {
  std::string key;           // as ExpectedRule::key
  std::string line;          // as listed
  std::size_t position = 0;  // 1-based in its chain
  // The words (no namespace prefix) that delete exactly this rule; empty
  // when it cannot be named safely, `unsafe` then says why.
  std::vector<std::string> deleteArgv;
  // When not empty: run just before deleteArgv, it must print `line` and a
  // newline, or the rule at `position` is another one and stays.
  std::vector<std::string> checkArgv;
  std::string unsafe;
};

class PluginView : public Kiv::PtrInterface {
 public:
  virtual std::vector<VipView> virtualIps() const = 0;
  virtual std::vector<SubnetView> subnets() const = 0;
  virtual BacklogView backlog() const = 0;
  // What the kernel should hold: the units wanted by the inputs where they
  // can be installed, and every recorded one.
  virtual Expected expected() const = 0;
  // The tools the plug-in writes rules with, and the words (no namespace
  // prefix) that list a tool's chain.
  virtual std::vector<std::string> tools() const = 0;
  virtual std::vector<std::string> listingArgv(const std::string& tool) const = 0;
  // The plug-in's kind of rules in a listing of `tool`, in listed order.
  virtual std::vector<ListedRule> listedRules(const std::string& tool,
                                              const std::string& listing) const = 0;

  // Repairs. Queues the pair in the plug-in's own work queue: its usual
  // decision then removes and re-adds it. False when no such input or
  // record exists.
  virtual bool pairQueueIs(const ExpectedPair& pair) = 0;
  // Adds a rule of no pair again with the plug-in's own add line; false when
  // the plug-in no longer expects it. A failure is reported as the plug-in
  // reports it.
  virtual bool ruleIs(const ExpectedRule& rule) = 0;

 protected:
  ~PluginView() override = default;
};

}  // namespace Acl
