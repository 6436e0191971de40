// Fuzz target for the plug-in's listing parser. The first byte picks the
// tool (iptables, ip6tables, arptables), the rest is the listing. Whatever
// the listing holds, a rule handed out for a delete must be named only by
// checked words: its own position for iptables, its key's words for
// arptables, each printable and without blanks, every interface name one
// the kernel takes; and its key must read back to itself. Any other outcome
// aborts.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "AclPlugin/firewall/RuleListing.h"

namespace {

[[noreturn]] void fail(const char* what, const std::string& text) {
  std::fprintf(stderr, "listing parser fault: %s\nline: %s\n", what, text.c_str());
  std::abort();
}

void check(const std::string& tool, const Acl::ListedRule& r) {
  using namespace Routing::Fhrp::Firewall;
  if (r.line.find('\n') != std::string::npos) fail("a rule spans lines", r.line);
  if (r.deleteArgv.empty()) {
    if (r.unsafe.empty()) fail("left alone without a reason", r.line);
    return;
  }
  if (!r.unsafe.empty()) fail("named although unsafe", r.line);
  for (std::size_t i = 0; i < r.deleteArgv.size(); ++i) {
    const std::string& w = r.deleteArgv[i];
    if (w.empty()) fail("empty word", r.line);
    for (unsigned char c : w)
      if (c <= ' ' || c >= 0x7f) fail("blank or odd byte in a word", r.line);
    if (i > 0 && (r.deleteArgv[i - 1] == "-o" || r.deleteArgv[i - 1] == "-i") &&
        !interfaceNameOk(w))
      fail("interface name the kernel refuses", r.line);
  }
  const std::string n = std::to_string(r.position);
  if (tool != "arptables" &&
      (r.deleteArgv != std::vector<std::string>{tool, "-t", "mangle", "-D", "PREROUTING", n} ||
       r.checkArgv != std::vector<std::string>{tool, "-t", "mangle", "-S", "PREROUTING", n}))
    fail("an iptables rule not named by its checked position", r.line);
  const std::string again = tool == "arptables" ? "-A OUT " + r.key : "-A PREROUTING " + r.key;
  const std::vector<Acl::ListedRule> back = listedRules(tool, again);
  if (back.size() != 1 || back[0].key != r.key) fail("key does not read back to itself", r.line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char* const tools[] = {"iptables", "ip6tables", "arptables"};
  const std::string tool = tools[data[0] % 3];
  const std::string listing(reinterpret_cast<const char*>(data + 1), size - 1);
  try {
    for (const Acl::ListedRule& r : Routing::Fhrp::Firewall::listedRules(tool, listing))
      check(tool, r);
  } catch (const std::exception& e) {
    fail(e.what(), listing);
  }
  return 0;
}
