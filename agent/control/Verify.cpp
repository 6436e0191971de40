#include "agent/control/Verify.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "platform/dravo/SocketAt.h"

namespace Agent::Control {

namespace {

// A listed text as one printable line: control and non-ASCII bytes as \xNN.
std::string shown(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c >= ' ' && c < 0x7f) {
      out += char(c);
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    }
  }
  return out;
}

std::string pairKey(const Acl::ExpectedPair& p) {
  return p.vrf + " " + p.prefix + " " + p.intf;
}

// Deletes one extra rule by the words the plug-in's parser gave; false
// (with the reason on stderr) when it stays.
bool doRemove(const VerifyInputs& in, const std::string& ns, const ExtraRule& e) {
  const Acl::ListedRule& r = e.rule;
  auto leftAlone = [&](const std::string& why) {
    std::fprintf(stderr, "acl-agent: verify: %s: left alone (%s): %s %s\n", ns.c_str(),
                 shown(why).c_str(), e.tool.c_str(), shown(r.line).c_str());
    return false;
  };
  if (r.deleteArgv.empty()) return leftAlone("cannot be named safely: " + r.unsafe);
  if (!r.checkArgv.empty()) {
    std::string out;
    if (in.command(ns, r.checkArgv, &out) != 0 || out != r.line + "\n")
      return leftAlone("position " + std::to_string(r.position) + " holds another rule now");
  }
  return in.command(ns, r.deleteArgv, nullptr) == 0;
}

void doRepair(Acl::PluginView& view, const VerifyInputs& in, VerifyResult& result) {
  for (const NsDrift& d : result.namespaces) {
    std::vector<const ExtraRule*> extra;
    for (const ExtraRule& e : d.extra) extra.push_back(&e);
    // The last first: positions read before stay true.
    std::stable_sort(extra.begin(), extra.end(), [](const ExtraRule* a, const ExtraRule* b) {
      return a->tool == b->tool ? a->rule.position > b->rule.position : a->tool < b->tool;
    });
    for (const ExtraRule* e : extra)
      ++(doRemove(in, d.ns, *e) ? result.removed : result.repairFailed);
  }
  std::set<std::string> queued;
  auto queue = [&](int index) {
    const Acl::ExpectedPair& p = result.expected.pairs[std::size_t(index)];
    if (!queued.insert(pairKey(p)).second) return;
    ++(view.pairQueueIs(p) ? result.queued : result.repairFailed);
  };
  for (const NsDrift& d : result.namespaces) {
    for (const Acl::ExpectedRule& r : d.missing) {
      if (r.pair < 0) {
        ++(view.ruleIs(r) ? result.readded : result.repairFailed);
        continue;
      }
      if (in.expectAbsent && result.expected.pairs[std::size_t(r.pair)].installed)
        in.expectAbsent(r.deleteLine);
    }
    for (const Acl::ExpectedRule& r : d.missing)
      if (r.pair >= 0) queue(r.pair);
    for (int p : d.misordered) queue(p);
  }
}

}  // namespace

bool namespaceExists(const std::string& ns) {
  if (ns == "default") return true;
  const int fd = Dravo::socketAt(AF_NETLINK, SOCK_RAW, 0, Dravo::NamespaceName(ns));
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

NsDrift compareNamespace(
    const std::string& ns, const Acl::Expected& expected,
    const std::vector<std::pair<std::string, std::vector<Acl::ListedRule>>>& listed) {
  NsDrift d;
  d.ns = ns;
  for (const auto& [tool, rules] : listed) {
    std::vector<bool> used(rules.size(), false);
    std::set<std::string> keys;
    // Position of each pair's rules: the first rule must come before the rest.
    std::map<int, std::pair<std::size_t, std::size_t>> firstAndLast;  // pair -> (first, max other)
    for (const Acl::ExpectedRule& e : expected.rules) {
      if (e.ns != ns || e.tool != tool || !keys.insert(e.key).second) continue;
      std::size_t at = 0;
      for (std::size_t i = 0; i < rules.size() && at == 0; ++i)
        if (!used[i] && rules[i].key == e.key) {
          used[i] = true;
          at = rules[i].position;
        }
      const bool onItsWay = e.pair >= 0 && expected.pairs[std::size_t(e.pair)].queued;
      if (at == 0) {
        if (!onItsWay) d.missing.push_back(e);
        continue;
      }
      if (e.pair < 0) continue;
      auto& [first, other] = firstAndLast[e.pair];
      if (e.first)
        first = at;
      else
        other = std::max(other, at);
    }
    for (const auto& [pair, at] : firstAndLast)
      if (at.first != 0 && at.second != 0 && at.second < at.first &&
          !expected.pairs[std::size_t(pair)].queued)
        d.misordered.push_back(pair);
    for (std::size_t i = 0; i < rules.size(); ++i)
      if (!used[i]) d.extra.push_back({tool, rules[i]});
  }
  return d;
}

VerifyResult doVerify(Acl::PluginView& view, const VerifyInputs& in, bool repair) {
  VerifyResult result;
  result.repair = repair;
  result.expected = view.expected();
  std::set<std::string> expectedNs(result.expected.namespaces.begin(),
                                   result.expected.namespaces.end());
  for (const Acl::ExpectedRule& r : result.expected.rules) expectedNs.insert(r.ns);
  std::set<std::string> namespaces = expectedNs;
  if (in.seen) namespaces.insert(in.seen->begin(), in.seen->end());
  const std::vector<std::string> tools = view.tools();

  for (const std::string& ns : namespaces) {
    const bool holdsRules = std::any_of(result.expected.rules.begin(), result.expected.rules.end(),
                                        [&](const Acl::ExpectedRule& r) { return r.ns == ns; });
    if (in.nsExists && !in.nsExists(ns)) {
      // Gone, and its rules with it.
      if (in.seen) in.seen->erase(ns);
      if (holdsRules) result.namespaces.push_back({ns, "the namespace does not exist", {}, {}, {}});
      continue;
    }
    if (in.seen) in.seen->insert(ns);
    std::vector<std::pair<std::string, std::vector<Acl::ListedRule>>> listed;
    std::string error;
    for (const std::string& tool : tools) {
      const std::vector<std::string> argv = view.listingArgv(tool);
      std::string out;
      if (in.command(ns, argv, &out) != 0) {
        std::string line;
        for (const std::string& w : argv) line += (line.empty() ? "" : " ") + w;
        error = "read-back failed: " + line;
        break;
      }
      listed.emplace_back(tool, view.listedRules(tool, out));
    }
    if (!error.empty())
      result.namespaces.push_back({ns, error, {}, {}, {}});
    else
      result.namespaces.push_back(compareNamespace(ns, result.expected, listed));
  }
  if (repair) doRepair(view, in, result);
  return result;
}

nlohmann::json verifyJson(const VerifyResult& r) {
  using nlohmann::json;
  auto pairJson = [&](int index) {
    const Acl::ExpectedPair& p = r.expected.pairs[std::size_t(index)];
    return json{{"vrf", p.vrf}, {"prefix", p.prefix}, {"interface", p.intf}, {"device", p.dev}};
  };
  json namespaces = json::array();
  bool inStep = true, error = false;
  for (const NsDrift& d : r.namespaces) {
    json n{{"namespace", d.ns}, {"inStep", d.inStep()}};
    if (!d.error.empty()) n["error"] = d.error;
    n["missing"] = json::array();
    for (const Acl::ExpectedRule& rule : d.missing) {
      json m = rule.pair >= 0 ? pairJson(rule.pair) : json::object();
      m["rule"] = rule.tool + " " + rule.key;
      n["missing"].push_back(m);
    }
    n["misordered"] = json::array();
    for (int p : d.misordered) n["misordered"].push_back(pairJson(p));
    n["extra"] = json::array();
    for (const ExtraRule& e : d.extra) {
      json x{{"rule", e.tool + " " + shown(e.rule.key)}};
      if (e.rule.deleteArgv.empty()) x["leftAlone"] = shown(e.rule.unsafe);
      n["extra"].push_back(std::move(x));
    }
    inStep = inStep && d.inStep();
    error = error || !d.error.empty();
    namespaces.push_back(std::move(n));
  }
  json out{
      {"reply", "verify"}, {"inStep", inStep}, {"readFailed", error}, {"namespaces", namespaces}};
  if (r.repair)
    out["repaired"] = {{"queued", r.queued},
                       {"readded", r.readded},
                       {"removed", r.removed},
                       {"failed", r.repairFailed}};
  return out;
}

}  // namespace Agent::Control
