#include "agent/apply/nft/NftReadBack.h"

#include "platform/dravo/NamespaceExec.h"

namespace Agent::Nft {

namespace {

const char* kComment = "\"KESTEL ADDED\"";

}  // namespace

std::optional<std::string> listingOf(const std::string& line, const std::vector<Change>& changes) {
  const std::string_view cmd = Dravo::namespacedCommandOf(line).command;
  std::optional<Family> family;
  if (cmd == "iptables -t mangle -S PREROUTING") family = Family::ip;
  if (cmd == "ip6tables -t mangle -S PREROUTING") family = Family::ip6;
  if (cmd == "arptables -L OUT -n") family = Family::arp;
  if (!family) return std::nullopt;
  std::string out;
  for (const Change& c : changes) {
    if (c.family != *family) continue;
    if (c.family == Family::arp) {
      // The rule matches requests with 6-byte hardware addresses only.
      out += "-A OUT -d " + c.subnet + " -o " + c.dev +
             " -a 6 --arpop Request -j mangle --mangle-hw-s " + c.mac + " --mangle-ip-s " +
             c.address + "\n";
      continue;
    }
    const bool v4 = c.family == Family::ip;
    const bool accept = c.verdict == Verdict::accept;
    out += "-A PREROUTING -d " + c.address + (v4 ? "/32" : "/128") + " -i " + c.dev + " -p " +
           (accept ? (v4 ? "icmp" : "ipv6-icmp") : "all") + " -m comment --comment " + kComment +
           " -j " + (accept ? "ACCEPT" : "DROP") + "\n";
  }
  return out;
}

std::optional<std::string> doReadBack(NftApplier& applier, const std::string& line) {
  applier.doApplyAll();
  const std::string ns = Dravo::namespacedCommandOf(line).ns.stringValue().stdString();
  const std::optional<std::vector<Change>> changes = applier.tablesOf(ns);
  if (!changes) return std::nullopt;
  return listingOf(line, *changes);
}

}  // namespace Agent::Nft

namespace Agent::Nft {

namespace {

std::string valueAfter(const std::vector<std::string>& argv,
                       std::initializer_list<const char*> flags) {
  for (std::size_t i = 0; i + 1 < argv.size(); ++i)
    for (const char* f : flags)
      if (argv[i] == f) return argv[i + 1];
  return {};
}

// Line `n` (1-based) of a listing, without its newline; empty when absent.
std::string listedLine(const std::string& listing, const std::string& n) {
  std::size_t want = 0;
  for (char c : n) {
    if (c < '0' || c > '9') return {};
    want = want * 10 + std::size_t(c - '0');
  }
  std::size_t start = 0;
  for (std::size_t i = 1; start < listing.size(); ++i) {
    const std::size_t end = listing.find('\n', start);
    if (i == want) return listing.substr(start, end - start);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return {};
}

// The plug-in's own delete line of a listed iptables rule, so that the
// applier removes the element exactly as the plug-in's delete would.
std::string deleteLineOf(const std::string& prefix, const std::string& tool,
                         const std::string& listed) {
  std::vector<std::string> w;
  for (std::size_t i = 0; i < listed.size();) {
    const std::size_t end = listed.find(' ', i);
    w.push_back(listed.substr(i, end - i));
    i = end == std::string::npos ? listed.size() : end + 1;
  }
  std::string address = valueAfter(w, {"-d"});
  address = address.substr(0, address.find('/'));
  return prefix + tool + " -t mangle -D PREROUTING -p " + valueAfter(w, {"-p"}) + " -d " + address +
         " -i " + valueAfter(w, {"-i"}) + " -m comment --comment " + kComment + " -j " +
         valueAfter(w, {"-j"}) + " 2>/dev/null";
}

}  // namespace

int doCommand(NftApplier& applier, const std::string& ns, const std::vector<std::string>& argv,
              std::string* out) {
  if (argv.size() < 3) return 256;
  const std::string prefix = Dravo::namespaceExecPrefix(Dravo::NamespaceName(ns)).stdString();
  const std::string& tool = argv[0];
  if (tool == "arptables" && argv[1] == "-D") {
    const std::string line =
        prefix + "arptables -D OUT -d " + valueAfter(argv, {"-d"}) + " -o " +
        valueAfter(argv, {"-o"}) + " -a 6 --arpop Request -j mangle --mangle-hw-s " +
        valueAfter(argv, {"--mangle-hw-s", "--mangle-mac-s"}) + " --mangle-ip-s " +
        valueAfter(argv, {"--mangle-ip-s"}) + " 2>/dev/null";
    return applier.lineIs(line, nullptr);
  }
  const bool numbered = argv.size() == 6 && (argv[3] == "-S" || argv[3] == "-D");
  std::string listingLine = prefix;
  for (std::size_t i = 0; i < (numbered ? 5 : argv.size()); ++i)
    listingLine += (i ? " " : "") + (numbered && i == 3 ? std::string("-S") : argv[i]);
  const std::optional<std::string> listing = doReadBack(applier, listingLine);
  if (!listing) return 256;
  if (!numbered) {
    if (out) *out = *listing;
    return 0;
  }
  const std::string listed = listedLine(*listing, argv[5]);
  if (listed.empty()) return 256;
  if (argv[3] == "-S") {
    if (out) *out = listed + "\n";
    return 0;
  }
  return applier.lineIs(deleteLineOf(prefix, tool, listed), nullptr);
}

}  // namespace Agent::Nft
