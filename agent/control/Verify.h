// verify: reads back, per namespace, the chains the plug-in writes and
// compares them whole rule by whole rule (the plug-in's keys) with what
// should be there (the view's expected rules). Drift is of three kinds:
//   missing     an expected rule is not there (with the pair it belongs to);
//   misordered  a pair's first rule (ACCEPT) stands after another of its rules;
//   extra       a rule of the plug-in's kind that nothing expects, or a later
//               copy of an expected one.
// A pair that waits in the backlog is on its way and never "missing".
//
// Namespaces read: "default", the active VRFs' and every one the plug-in
// expects rules in, plus every namespace read since start-up (`seen`), so
// leftovers anywhere show; one that no longer exists is forgotten.
//
// Repair: an extra rule is deleted by the words the plug-in's parser gives
// (iptables by position, checked again just before; arptables by all its
// match and target words), run as an argument vector, never through a shell; a rule
// that cannot be named safely is reported and left alone, with one stderr
// line. Deletes in one chain run from the last position to the first. Then
// every pair with a missing or misordered rule is queued in the plug-in's
// backlog, after `expectAbsent` was told the plug-in's delete line of each
// rule known missing from an installed pair (its decision deletes before it
// adds, and that delete must fail). A missing rule of no pair is added again
// through the view. Event-loop thread only.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/acl/PluginView.h"

namespace Agent::Control {

struct VerifyInputs {
  // Runs argv inside `ns` without a shell; its standard output into *out
  // when given. Returns a system()-style status.
  std::function<int(const std::string& ns, const std::vector<std::string>& argv, std::string* out)>
      command;
  // Whether `ns` exists; null: every one does.
  std::function<bool(const std::string& ns)> nsExists;
  // Told each plug-in delete line that will fail because its rule is gone.
  std::function<void(const std::string& line)> expectAbsent;
  // Namespaces read so far, kept by the caller across runs; may be null.
  std::set<std::string>* seen = nullptr;
};

struct ExtraRule {
  std::string tool;
  Acl::ListedRule rule;
};

struct NsDrift {
  std::string ns;
  std::string error;                       // a read-back that failed; nothing compared then
  std::vector<Acl::ExpectedRule> missing;  // pair: index in VerifyResult::expected.pairs
  std::vector<int> misordered;             // pair indices
  std::vector<ExtraRule> extra;
  bool inStep() const {
    return error.empty() && missing.empty() && misordered.empty() && extra.empty();
  }
};

struct VerifyResult {
  Acl::Expected expected;
  std::vector<NsDrift> namespaces;  // every namespace read, sorted
  std::size_t queued = 0, readded = 0, removed = 0, repairFailed = 0;
  bool repair = false;
};

// `listed`: per tool, the plug-in's kind of rules as the kernel lists them.
NsDrift compareNamespace(
    const std::string& ns, const Acl::Expected& expected,
    const std::vector<std::pair<std::string, std::vector<Acl::ListedRule>>>& listed);
VerifyResult doVerify(Acl::PluginView& view, const VerifyInputs& inputs, bool repair);

// Whether the network namespace `ns` exists ("default" always does).
bool namespaceExists(const std::string& ns);

nlohmann::json verifyJson(const VerifyResult& r);

}  // namespace Agent::Control
