#include "agent/control/Verify.h"

#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>

namespace Agent::Control {

namespace {

// Words of a listed rule; a double-quoted word (iptables quotes a comment
// with spaces) is one word without its quotes.
std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> out;
  std::size_t i = 0;
  while (i < line.size()) {
    if (std::isspace(static_cast<unsigned char>(line[i]))) {
      ++i;
      continue;
    }
    std::string w;
    if (line[i] == '"') {
      const std::size_t end = line.find('"', i + 1);
      w = line.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1);
      i = end == std::string::npos ? line.size() : end + 1;
    } else {
      while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i]))) w += line[i++];
    }
    out.push_back(std::move(w));
  }
  return out;
}

std::string valueAfter(const std::vector<std::string>& w, const std::string& opt) {
  for (std::size_t i = 0; i + 1 < w.size(); ++i)
    if (w[i] == opt) return w[i + 1];
  return {};
}

// "a.b.c.d/255.255.255.0" as "a.b.c.d/24"; anything else as it is.
std::string prefixText(const std::string& s) {
  const std::size_t slash = s.find('/');
  if (slash == std::string::npos || s.find('.', slash) == std::string::npos) return s;
  unsigned a, b, c, d, bits = 0;
  if (std::sscanf(s.c_str() + slash + 1, "%u.%u.%u.%u", &a, &b, &c, &d) != 4) return s;
  for (unsigned octet : {a, b, c, d})
    for (int i = 7; i >= 0; --i) bits += (octet >> i) & 1;
  return s.substr(0, slash + 1) + std::to_string(bits);
}

// Six hex bytes, lower case, two digits each: listings may drop zeros.
std::string macText(const std::string& s) {
  unsigned b[6];
  if (std::sscanf(s.c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) != 6)
    return s;
  char out[18];
  std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
                b[5]);
  return out;
}

Acl::RuleView normalArp(Acl::RuleView r) {
  r.subnet = prefixText(r.subnet);
  r.mac = macText(r.mac);
  return r;
}

Acl::RuleView pairRule(const Acl::ExpectedPair& p, const char* target) {
  return {p.tool, p.ns, target, p.address, p.dev, "", "", ""};
}

// What iptables/arptables and the kernel take as an interface name, less
// anything a listing could not show unambiguously: 1-15 bytes, printable
// ASCII, no blank, '/', ':' or quote, not starting like an option.
bool interfaceNameOk(const std::string& s) {
  if (s.empty() || s.size() > 15 || s == "." || s == ".." || s[0] == '-' || s[0] == '!')
    return false;
  for (unsigned char c : s)
    if (c <= ' ' || c >= 0x7f || c == '/' || c == ':' || c == '"' || c == '\'' || c == '\\' ||
        c == '$' || c == '`' || c == ';' || c == '&' || c == '|' || c == '<' || c == '>' ||
        c == '(' || c == ')' || c == '*' || c == '?' || c == '[' || c == ']' || c == '~' ||
        c == '{' || c == '}')
      return false;
  return true;
}

// Words a shell would take as they are: the repair's delete line pastes them.
bool plainWord(const std::string& s) {
  if (s.empty()) return false;
  for (unsigned char c : s)
    if (!std::isalnum(c) && c != '.' && c != ':' && c != '/' && c != '_' && c != '-') return false;
  return true;
}

bool nameable(const Acl::RuleView& r) {
  if (!interfaceNameOk(r.dev)) return false;
  for (const std::string* w : {&r.target, &r.address, &r.subnet, &r.srcIp, &r.mac})
    if (!w->empty() && !plainWord(*w)) return false;
  return true;
}

std::string pairKey(const Acl::ExpectedPair& p) {
  return p.vrf + " " + p.prefix + " " + p.intf;
}

}  // namespace

std::vector<std::string> readBackLines(const std::string& ns) {
  const std::string prefix = ns == "default" ? "" : "ip netns exec " + ns + " ";
  return {prefix + "iptables -t mangle -S PREROUTING", prefix + "ip6tables -t mangle -S PREROUTING",
          prefix + "arptables -L OUT -n"};
}

std::optional<Acl::RuleView> parseIptablesLine(const std::string& tool, const std::string& ns,
                                               const std::string& tag, const std::string& line) {
  const std::vector<std::string> w = words(line);
  if (w.size() < 2 || w[0] != "-A" || w[1] != "PREROUTING") return std::nullopt;
  if (valueAfter(w, "--comment") != tag) return std::nullopt;
  std::string address = valueAfter(w, "-d");
  const std::size_t slash = address.find('/');
  const std::string full = tool == "ip6tables" ? "128" : "32";
  if (slash != std::string::npos && address.substr(slash + 1) == full) address.resize(slash);
  return Acl::RuleView{tool, ns, valueAfter(w, "-j"), address, valueAfter(w, "-i"), "", "", ""};
}

std::optional<Acl::RuleView> parseArptablesLine(const std::string& ns, const std::string& line) {
  const std::vector<std::string> w = words(line);
  if (valueAfter(w, "-j") != "mangle") return std::nullopt;
  std::string mac = valueAfter(w, "--mangle-hw-s");
  if (mac.empty()) mac = valueAfter(w, "--mangle-mac-s");
  const std::string src = valueAfter(w, "--mangle-ip-s");
  if (mac.empty() || src.empty()) return std::nullopt;
  return normalArp({"arptables", ns, "", "", valueAfter(w, "-o"), valueAfter(w, "-d"), src, mac});
}

NsDrift compareNamespace(const std::string& ns, const std::vector<Acl::ExpectedPair>& pairs,
                         const std::vector<Acl::RuleView>& arp,
                         const std::vector<Acl::RuleView>& kernel) {
  NsDrift d;
  d.ns = ns;
  std::vector<bool> used(kernel.size(), false);
  auto find = [&](const Acl::RuleView& r) -> long {
    for (std::size_t i = 0; i < kernel.size(); ++i)
      if (!used[i] && kernel[i] == r) {
        used[i] = true;
        return long(i);
      }
    return -1;
  };
  std::set<std::string> seen;
  for (const Acl::ExpectedPair& p : pairs) {
    if (p.ns != ns || !seen.insert(p.tool + " " + p.address + " " + p.dev).second) continue;
    const Acl::RuleView accept = pairRule(p, "ACCEPT"), drop = pairRule(p, "DROP");
    const long a = find(accept), b = find(drop);
    if (p.queued) continue;
    if (a < 0) d.missing.emplace_back(accept, p);
    if (b < 0) d.missing.emplace_back(drop, p);
    if (a >= 0 && b >= 0 && b < a) d.misordered.push_back(p);
  }
  for (const Acl::RuleView& r : arp)
    if (r.ns == ns && find(normalArp(r)) < 0) d.missingArp.push_back(r);
  for (std::size_t i = 0; i < kernel.size(); ++i)
    if (!used[i]) d.extra.push_back(kernel[i]);
  return d;
}

VerifyResult doVerify(Acl::PluginView& view, const ReadBack& readBack, bool repair) {
  VerifyResult result;
  result.repair = repair;
  const std::vector<Acl::ExpectedPair> pairs = view.expectedPairs();
  const std::vector<Acl::RuleView> arp = view.expectedArpRules();
  const std::string tag = view.ruleComment();
  std::set<std::string> namespaces;
  for (const auto& p : pairs) namespaces.insert(p.ns);
  for (const auto& r : arp) namespaces.insert(r.ns);

  for (const std::string& ns : namespaces) {
    std::vector<Acl::RuleView> kernel;
    std::string error;
    const std::vector<std::string> lines = readBackLines(ns);
    for (std::size_t i = 0; i < lines.size() && error.empty(); ++i) {
      const std::optional<std::string> out = readBack(lines[i]);
      if (!out) {
        error = "read-back failed: " + lines[i];
        break;
      }
      std::istringstream in(*out);
      for (std::string line; std::getline(in, line);) {
        std::optional<Acl::RuleView> r =
            i == 2 ? parseArptablesLine(ns, line)
                   : parseIptablesLine(i == 0 ? "iptables" : "ip6tables", ns, tag, line);
        if (r) kernel.push_back(std::move(*r));
      }
    }
    if (!error.empty()) {
      NsDrift d;
      d.ns = ns;
      d.error = error;
      result.namespaces.push_back(std::move(d));
      continue;
    }
    result.namespaces.push_back(compareNamespace(ns, pairs, arp, kernel));
  }
  if (!repair) return result;

  std::set<std::string> queued;
  auto queue = [&](const Acl::ExpectedPair& p) {
    if (!queued.insert(pairKey(p)).second) return;
    if (view.pairQueueIs(p))
      ++result.queued;
    else
      ++result.repairFailed;
  };
  for (const NsDrift& d : result.namespaces) {
    for (const auto& [rule, pair] : d.missing) queue(pair);
    for (const Acl::ExpectedPair& p : d.misordered) queue(p);
    for (const Acl::RuleView& r : d.missingArp) {
      view.arpRuleIs(r);
      ++result.readded;
    }
    for (const Acl::RuleView& r : d.extra) {
      if (!nameable(r)) {
        std::fprintf(stderr, "acl-agent: verify: %s: left alone, cannot be named safely: %s\n",
                     d.ns.c_str(), ruleText(r).c_str());
        ++result.repairFailed;
      } else if (view.ruleDel(r) == 0)
        ++result.removed;
      else
        ++result.repairFailed;
    }
  }
  return result;
}

std::string ruleText(const Acl::RuleView& r) {
  if (r.tool == "arptables")
    return "arptables -d " + r.subnet + " -o " + r.dev + " --mangle-ip-s " + r.srcIp +
           " --mangle-hw-s " + r.mac;
  return r.tool + " -d " + r.address + " -i " + r.dev + " -j " + r.target;
}

nlohmann::json verifyJson(const VerifyResult& r) {
  using nlohmann::json;
  auto pairJson = [](const Acl::ExpectedPair& p) {
    return json{{"vrf", p.vrf}, {"prefix", p.prefix}, {"interface", p.intf}, {"device", p.dev}};
  };
  json namespaces = json::array();
  bool inStep = true, error = false;
  for (const NsDrift& d : r.namespaces) {
    json n{{"namespace", d.ns}, {"inStep", d.inStep()}};
    if (!d.error.empty()) n["error"] = d.error;
    n["missing"] = json::array();
    for (const auto& [rule, pair] : d.missing) {
      json m = pairJson(pair);
      m["rule"] = ruleText(rule);
      n["missing"].push_back(m);
    }
    for (const Acl::RuleView& rule : d.missingArp)
      n["missing"].push_back({{"rule", ruleText(rule)}});
    n["misordered"] = json::array();
    for (const Acl::ExpectedPair& p : d.misordered) n["misordered"].push_back(pairJson(p));
    n["extra"] = json::array();
    for (const Acl::RuleView& rule : d.extra) n["extra"].push_back({{"rule", ruleText(rule)}});
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
