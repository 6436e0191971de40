#include "agent/apply/nft/NftLine.h"

#include <arpa/inet.h>

#include <vector>

#include "platform/dravo/NamespaceExec.h"

namespace Agent::Nft {

namespace {

std::vector<std::string_view> words(std::string_view s) {
  std::vector<std::string_view> w;
  for (std::size_t at = 0; at <= s.size();) {
    const std::size_t end = std::min(s.find(' ', at), s.size());
    w.push_back(s.substr(at, end - at));
    at = end + 1;
  }
  return w;
}

bool isAddress(int af, std::string_view text) {
  unsigned char buf[16];
  return text.size() < 64 && ::inet_pton(af, std::string(text).c_str(), buf) == 1;
}

// A kernel device name: 1 to 15 bytes, no blank, slash, quote or control byte.
bool isDevice(std::string_view dev) {
  if (dev.empty() || dev.size() > 15 || dev == "." || dev == "..") return false;
  for (unsigned char c : dev)
    if (c <= ' ' || c >= 0x7f || c == '/' || c == '"' || c == '\\' || c == ':') return false;
  return true;
}

bool isSubnet(std::string_view s) {
  const std::size_t slash = s.find('/');
  if (slash == std::string_view::npos || !isAddress(AF_INET, s.substr(0, slash))) return false;
  const std::string_view len = s.substr(slash + 1);
  if (len.empty() || len.size() > 2) return false;
  int n = 0;
  for (char c : len) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + (c - '0');
  }
  return n <= 32 && !(len.size() == 2 && len[0] == '0');
}

bool isMac(std::string_view m) {
  if (m.size() != 17) return false;
  for (std::size_t i = 0; i < m.size(); ++i) {
    const char c = m[i];
    const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    if (i % 3 == 2 ? c != ':' : !hex) return false;
  }
  return true;
}

// Matches `w` against `shape`, where "*" takes any word into `out` in order.
bool matches(const std::vector<std::string_view>& w, std::initializer_list<std::string_view> shape,
             std::vector<std::string_view>& out) {
  if (w.size() != shape.size()) return false;
  std::size_t i = 0;
  for (std::string_view s : shape) {
    if (s == "*")
      out.push_back(w[i]);
    else if (s != w[i])
      return false;
    ++i;
  }
  return true;
}

std::optional<Change> iptablesChange(Family f, std::vector<std::string_view> w) {
  std::vector<std::string_view> v;
  Change c;
  c.family = f;
  c.op = Op::flush;
  if (matches(w, {"-t", "mangle", "-F", "PREROUTING"}, v)) return c;
  // -A|-D, protocol, address, device, verdict
  if (!matches(w,
               {"-t", "mangle", "*", "PREROUTING", "-p", "*", "-d", "*", "-i", "*", "-m", "comment",
                "--comment", "\"KESTEL", "ADDED\"", "-j", "*"},
               v))
    return std::nullopt;
  const std::string_view icmp = f == Family::ip ? "icmp" : "ipv6-icmp";
  if (v[0] != "-A" && v[0] != "-D") return std::nullopt;
  c.op = v[0] == "-A" ? Op::add : Op::del;
  if (v[1] == icmp && v[4] == "ACCEPT")
    c.verdict = Verdict::accept;
  else if (v[1] == "all" && v[4] == "DROP")
    c.verdict = Verdict::drop;
  else
    return std::nullopt;
  if (!isAddress(f == Family::ip ? AF_INET : AF_INET6, v[2]) || !isDevice(v[3]))
    return std::nullopt;
  c.address = v[2];
  c.dev = v[3];
  return c;
}

std::optional<Change> arptablesChange(std::vector<std::string_view> w) {
  std::vector<std::string_view> v;
  Change c;
  c.family = Family::arp;
  c.op = Op::flush;
  if (matches(w, {"-F", "OUT"}, v)) return c;
  // -A|-D, subnet, device, MAC, source
  if (!matches(w,
               {"*", "OUT", "-d", "*", "-o", "*", "-a", "6", "--arpop", "Request", "-j", "mangle",
                "--mangle-hw-s", "*", "--mangle-ip-s", "*"},
               v))
    return std::nullopt;
  if ((v[0] != "-A" && v[0] != "-D") || !isSubnet(v[1]) || !isDevice(v[2]) || !isMac(v[3]) ||
      !isAddress(AF_INET, v[4]))
    return std::nullopt;
  c.op = v[0] == "-A" ? Op::add : Op::del;
  c.address = v[4];
  c.dev = v[2];
  c.subnet = v[1];
  c.mac = v[3];
  return c;
}

}  // namespace

const char* familyName(Family f) {
  return f == Family::ip ? "ip" : f == Family::ip6 ? "ip6" : "arp";
}

std::optional<Change> changeOf(std::string_view line) {
  const Dravo::NamespacedCommand n = Dravo::namespacedCommandOf(line);
  std::string_view rest = n.command;
  // The tail only the delete lines carry; taken on any rule line.
  constexpr std::string_view quiet = " 2>/dev/null";
  const bool isQuiet = rest.ends_with(quiet);
  if (isQuiet) rest.remove_suffix(quiet.size());
  std::vector<std::string_view> w = words(rest);
  if (w.empty()) return std::nullopt;
  const std::string_view tool = w.front();
  w.erase(w.begin());
  std::optional<Change> c;
  if (tool == "iptables")
    c = iptablesChange(Family::ip, std::move(w));
  else if (tool == "ip6tables")
    c = iptablesChange(Family::ip6, std::move(w));
  else if (tool == "arptables")
    c = arptablesChange(std::move(w));
  if (!c || (isQuiet && c->op == Op::flush)) return std::nullopt;
  c->ns = n.ns.stringValue().stdString();
  return c;
}

}  // namespace Agent::Nft
