// verify: reads back, per namespace, what the kernel holds of the plug-in's
// rules and compares it with what should be there (the view's expected
// pairs and arptables rules). Drift is of three kinds:
//   missing     an expected rule is not there (with the pair it belongs to);
//   misordered  both rules of a pair are there, DROP before ACCEPT;
//   extra       a tagged rule (or a mangle arptables rule) nothing expects.
// A pair that waits in the backlog is on its way and never "missing".
// Repair goes through the plug-in: a pair with a missing or misordered rule
// is queued in its backlog again, a missing arptables rule is added with its
// add line, an extra rule removed with its delete line.
//
// Read-back, per namespace NS ("default": no prefix):
//   [ip netns exec NS ]iptables -t mangle -S PREROUTING
//   [ip netns exec NS ]ip6tables -t mangle -S PREROUTING
//   [ip netns exec NS ]arptables -L OUT -n
// Event-loop thread only.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/acl/PluginView.h"

namespace Agent::Control {

// Runs one read-back line; its output, or nullopt when it failed.
using ReadBack = std::function<std::optional<std::string>(const std::string& line)>;

struct NsDrift {
  std::string ns;
  std::string error;  // a read-back that failed; nothing compared then
  std::vector<std::pair<Acl::RuleView, Acl::ExpectedPair>> missing;
  std::vector<Acl::RuleView> missingArp;
  std::vector<Acl::ExpectedPair> misordered;
  std::vector<Acl::RuleView> extra;
  bool inStep() const {
    return error.empty() && missing.empty() && missingArp.empty() && misordered.empty() &&
           extra.empty();
  }
};

struct VerifyResult {
  std::vector<NsDrift> namespaces;  // every namespace read, sorted
  std::size_t queued = 0, readded = 0, removed = 0, repairFailed = 0;
  bool repair = false;
};

std::vector<std::string> readBackLines(const std::string& ns);
// A line of `iptables -S` with the comment `tag`; nullopt for anything else.
std::optional<Acl::RuleView> parseIptablesLine(const std::string& tool, const std::string& ns,
                                               const std::string& tag, const std::string& line);
// A mangle rule of `arptables -L`, in the stock words (-o, --mangle-mac-s)
// or the plug-in's (--mangle-hw-s); nullopt for anything else.
std::optional<Acl::RuleView> parseArptablesLine(const std::string& ns, const std::string& line);
// `kernel` in the order the kernel lists them.
NsDrift compareNamespace(const std::string& ns, const std::vector<Acl::ExpectedPair>& pairs,
                         const std::vector<Acl::RuleView>& arp,
                         const std::vector<Acl::RuleView>& kernel);
VerifyResult doVerify(Acl::PluginView& view, const ReadBack& readBack, bool repair);

// The rule as a line of the report, e.g. "iptables -d 10.0.0.1 -i vlan10 -j ACCEPT".
std::string ruleText(const Acl::RuleView& r);
nlohmann::json verifyJson(const VerifyResult& r);

}  // namespace Agent::Control
