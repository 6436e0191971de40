#include "agent/arptables/Translate.h"

#include <map>
#include <set>
#include <string_view>

namespace Agent::Arptables {

namespace {

// Commands whose next token, when it is not an option, names a chain.
const std::set<std::string_view> chainCommands{"-A", "-D", "-F", "-L", "-S"};
// Options the stock tool spells differently; each takes one value.
const std::map<std::string_view, std::string_view> renamed{{"--arpop", "--opcode"},
                                                           {"--mangle-hw-s", "--mangle-mac-s"}};
// Options that both dialects spell alike, with the count of values each takes.
const std::map<std::string_view, int> shared{{"-n", 0},
                                             {"-v", 0},
                                             {"-x", 0},
                                             {"--line-numbers", 0},
                                             {"-d", 1},
                                             {"-s", 1},
                                             {"-o", 1},
                                             {"-i", 1},
                                             {"-j", 1},
                                             {"--mangle-ip-s", 1},
                                             {"--mangle-ip-d", 1},
                                             {"--mangle-mac-d", 1},
                                             {"--opcode", 1},
                                             {"--h-length", 1},
                                             {"--mangle-mac-s", 1}};

}  // namespace

Translation translate(const std::vector<std::string>& args) {
  Translation t;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string_view option) -> bool {
      if (i + 1 < args.size()) return true;
      t.refusal = std::string(option) + " needs a value";
      return false;
    };
    if (chainCommands.count(a)) {
      t.args.push_back(a);
      if (i + 1 < args.size() && args[i + 1].rfind('-', 0) != 0) {
        const std::string& chain = args[++i];
        t.args.push_back(chain == "OUT" ? "OUTPUT" : chain);
      }
    } else if (a == "-a") {
      if (!value(a)) break;
      t.args.push_back("--h-length");
      t.args.push_back(args[++i]);
    } else if (auto r = renamed.find(a); r != renamed.end()) {
      if (!value(a)) break;
      t.args.push_back(std::string(r->second));
      t.args.push_back(args[++i]);
    } else if (auto s = shared.find(a); s != shared.end()) {
      if (s->second == 1 && !value(a)) break;
      t.args.push_back(a);
      if (s->second == 1) t.args.push_back(args[++i]);
    } else {
      t.refusal = a.rfind('-', 0) == 0 ? "unknown option \"" + a + "\""
                                       : "unexpected argument \"" + a + "\"";
      break;
    }
  }
  if (t.args.empty() && t.refusal.empty()) t.refusal = "no command";
  if (!t.refusal.empty()) t.args.clear();
  return t;
}

}  // namespace Agent::Arptables
