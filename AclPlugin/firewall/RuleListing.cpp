#include "AclPlugin/firewall/RuleListing.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <optional>

#include "AclPlugin/firewall/IptablesRules.h"
#include "platform/dravo/IpGenPrefix.h"
#include "platform/dravo/NamespaceExec.h"

namespace Routing::Fhrp::Firewall {

namespace {

constexpr std::string_view quiet = " 2>/dev/null";

struct Word {
  std::string text;
  bool quoted = false;
};

// Splits on single blanks. A word opening with '"' runs to the closing
// unescaped '"' (iptables writes \" and \\ inside); nullopt when it never
// closes. Blanks are the only separators: any other odd byte stays inside
// its word, where the field's check refuses it.
std::optional<std::vector<Word>> splitWords(std::string_view line) {
  std::vector<Word> out;
  std::size_t i = 0;
  while (i < line.size()) {
    if (line[i] == ' ') {
      ++i;
      continue;
    }
    Word w;
    if (line[i] == '"') {
      w.quoted = true;
      for (++i;; ++i) {
        if (i >= line.size()) return std::nullopt;
        if (line[i] == '"') break;
        if (line[i] == '\\' && i + 1 < line.size()) ++i;
        w.text += line[i];
      }
      ++i;
      if (i < line.size() && line[i] != ' ') return std::nullopt;
    } else {
      while (i < line.size() && line[i] != ' ') w.text += line[i++];
    }
    out.push_back(std::move(w));
  }
  return out;
}

bool printable(unsigned char c) {
  return c > ' ' && c < 0x7f;
}

// A value we may show and compare: printable ASCII, nothing a reader or a
// tokenizer could take two ways.
bool plainValue(const Word& w) {
  if (w.text.empty()) return false;
  for (unsigned char c : w.text)
    if (!(printable(c) || (w.quoted && c == ' ')) || c == '\'' || c == '\\' || c == '"')
      return false;
  return true;
}

bool optionWord(std::string_view s) {
  if (s.size() < 2 || s[0] != '-') return false;
  for (char c : s.substr(1))
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') return false;
  return true;
}

bool digits(std::string_view s, unsigned long max, unsigned long& out) {
  if (s.empty() || s.size() > 6) return false;
  out = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    out = out * 10 + unsigned(c - '0');
  }
  return out <= max;
}

// "a.b.c.d" as a contiguous mask's length.
bool maskLength(std::string_view s, unsigned& len) {
  std::uint32_t m;
  if (!Dravo::parseIpv4(s, m)) return false;
  len = 0;
  while (len < 32 && (m & (0x80000000u >> len))) ++len;
  return len == 32 || (m << len) == 0;
}

// An address with an optional length (or, for IPv4, a dotted mask) in the
// family's canonical text, host bits cleared; "" when it is not one.
std::string prefixText(std::string_view s, bool v6) {
  const std::size_t slash = s.find('/');
  const std::string_view addr = s.substr(0, slash);
  Dravo::IpGenAddr a;
  if (v6) {
    Dravo::Ip6Addr::Bytes b;
    if (!Dravo::parseIpv6(addr, b)) return "";
    a = Dravo::IpGenAddr(Dravo::Ip6Addr(b));
  } else {
    std::uint32_t v;
    if (!Dravo::parseIpv4(addr, v)) return "";
    a = Dravo::IpGenAddr(Dravo::IpAddr(v));
  }
  unsigned len = a.width();
  if (slash != std::string_view::npos) {
    const std::string_view rest = s.substr(slash + 1);
    unsigned long n;
    if (digits(rest, a.width(), n))
      len = unsigned(n);
    else if (v6 || !maskLength(rest, len))
      return "";
  }
  return Dravo::IpGenPrefix(a, len).stringValue().stdString();
}

std::string ipv4Text(std::string_view s) {
  std::uint32_t v;
  return Dravo::parseIpv4(s, v) ? Dravo::IpAddr(v).stringValue().stdString() : "";
}

unsigned hexValue(char c) {
  return c <= '9' ? unsigned(c - '0')
                  : unsigned(std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
}

// Six groups of one or two hex digits (some listings drop leading zeros).
std::string macText(std::string_view s) {
  std::array<unsigned, 6> b{};
  std::size_t i = 0;
  for (unsigned& byte : b) {
    std::size_t n = 0;
    byte = 0;
    for (; i < s.size() && n < 3 && std::isxdigit(static_cast<unsigned char>(s[i])); ++i, ++n)
      byte = byte * 16 + hexValue(s[i]);
    if (n == 0 || n > 2) return "";
    if (&byte != &b.back() && (i >= s.size() || s[i++] != ':')) return "";
  }
  if (i != s.size()) return "";
  char out[18];
  std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
                b[5]);
  return out;
}

const std::array<const char*, 9> opcodes = {"Request",       "Reply",         "Request_Reverse",
                                            "Reply_Reverse", "DRARP_Request", "DRARP_Reply",
                                            "DRARP_Error",   "InARP_Request", "ARP_NAK"};

std::string opcodeText(std::string_view s) {
  unsigned long n;
  if (digits(s, 65535, n)) return n >= 1 && n <= opcodes.size() ? opcodes[n - 1] : std::string(s);
  for (const char* name : opcodes) {
    const std::string_view v(name);
    if (v.size() != s.size()) continue;
    bool same = true;
    for (std::size_t i = 0; i < v.size(); ++i)
      same = same && std::tolower(static_cast<unsigned char>(v[i])) ==
                         std::tolower(static_cast<unsigned char>(s[i]));
    if (same) return name;
  }
  return "";
}

std::string quotedText(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// One rule read into its fields: the known ones in the slots of their key
// order, everything else in `rest` in listed order.
struct Rule {
  std::vector<std::pair<std::string, std::string>> slots;  // option -> "[! ]value"
  std::vector<std::string> rest;
  std::string unsafe;   // why it cannot be named; parsing went on
  std::string broken;   // why it cannot be read at all
  bool tagged = false;  // carries the plug-in's comment (iptables)
  std::string target;

  void slotIs(const std::string& option, const std::string& value) {
    for (auto& [o, v] : slots)
      if (o == option) {
        v = value;
        return;
      }
    slots.emplace_back(option, value);
  }
  std::string key(const std::vector<std::string>& order, std::size_t restAt) const {
    std::string k;
    auto add = [&](const std::string& w) { k += (k.empty() ? "" : " ") + w; };
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (i == restAt)
        for (const std::string& w : rest) add(w);
      for (const auto& [o, v] : slots)
        if (o == order[i]) {
          const bool neg = v.starts_with("! ");
          const std::string value = neg ? v.substr(2) : v;
          add((neg ? "! " : "") + o + (value.empty() ? "" : " " + value));
        }
    }
    if (restAt >= order.size())
      for (const std::string& w : rest) add(w);
    return k;
  }
};

// The words after the chain of an iptables/ip6tables rule. Key order as
// `-S` lists: -s -d -i -o -p -f, then matches and target as listed.
Rule readIptables(const std::vector<Word>& w, std::size_t from, bool v6) {
  Rule r;
  for (std::size_t i = from; i < w.size() && r.broken.empty(); ++i) {
    std::string neg;
    if (w[i].text == "!" && !w[i].quoted && i + 1 < w.size()) {
      neg = "! ";
      ++i;
    }
    const std::string& o = w[i].text;
    if (w[i].quoted || !optionWord(o)) {
      r.broken = "unexpected word \"" + o + "\"";
      break;
    }
    const bool hasValue = i + 1 < w.size() && !(optionWord(w[i + 1].text) && !w[i + 1].quoted);
    const std::string value = hasValue ? w[i + 1].text : "";
    if (o == "-s" || o == "-d" || o == "--source" || o == "--destination") {
      const std::string p = hasValue ? prefixText(value, v6) : "";
      if (p.empty()) r.broken = "not an address: \"" + value + "\"";
      r.slotIs(o.size() == 2 ? o : o == "--source" ? "-s" : "-d", neg + p);
      ++i;
    } else if (o == "-i" || o == "-o") {
      if (!hasValue) r.broken = o + " without a name";
      if (!interfaceNameOk(value))
        r.unsafe = "interface name \"" + value + "\" is not one the plug-in could have written";
      r.slotIs(o, neg + value);
      ++i;
    } else if (o == "-p") {
      // A protocol is one bare word: its slot is written back unquoted.
      if (!hasValue || w[i + 1].quoted || !plainValue(w[i + 1])) r.broken = "bad protocol";
      if (value != "all" || !neg.empty()) r.slotIs("-p", neg + value);
      ++i;
    } else if (o == "-f") {
      r.slotIs("-f", neg.empty() ? "" : "! ");
    } else {
      if (!neg.empty()) r.rest.push_back("!");
      r.rest.push_back(o);
      // An option's values run to the next option word.
      for (; i + 1 < w.size() && !(optionWord(w[i + 1].text) && !w[i + 1].quoted) &&
             w[i + 1].text != "!";
           ++i) {
        const Word& v = w[i + 1];
        if (!plainValue(v)) r.unsafe = "a value the plug-in would never write";
        if (o == "--comment" && v.text == ruleComment) r.tagged = true;
        if (o == "-j") r.target = v.text;
        r.rest.push_back(v.quoted || o == "--comment" ? quotedText(v.text) : v.text);
      }
    }
  }
  return r;
}

std::string iptablesKey(const Rule& r) {
  return r.key({"-s", "-d", "-i", "-o", "-p", "-f"}, 6);
}

// The words after the chain of an arptables rule, either dialect. Key order
// is the plug-in's: -s -d -i -o -a --arpop, other matches, -j, then the
// mangle target's options.
Rule readArptables(const std::vector<Word>& w, std::size_t from) {
  Rule r;
  for (std::size_t i = from; i < w.size() && r.broken.empty(); ++i) {
    std::string neg;
    if (w[i].text == "!" && i + 1 < w.size()) {
      neg = "! ";
      r.unsafe = "a negation the plug-in never writes";
      ++i;
    }
    const std::string& o = w[i].text;
    if (w[i].quoted || !optionWord(o)) {
      r.broken = "unexpected word \"" + o + "\"";
      break;
    }
    if (i + 1 >= w.size() || w[i + 1].quoted) {
      r.broken = o + " without a value";
      break;
    }
    const std::string& v = w[++i].text;
    std::string canon;
    std::string slot = o;
    if (o == "-s" || o == "-d") {
      canon = prefixText(v, false);
    } else if (o == "-i" || o == "-o") {
      canon = v;
      if (!interfaceNameOk(v))
        r.unsafe = "interface name \"" + v + "\" is not one the plug-in could have written";
      if (v.empty()) canon.clear();
    } else if (o == "-a" || o == "--h-length") {
      unsigned long n;
      slot = "-a";
      canon = digits(v, 255, n) ? std::to_string(n) : "";
    } else if (o == "--arpop" || o == "--opcode") {
      slot = "--arpop";
      canon = opcodeText(v);
    } else if (o == "-j") {
      canon = plainValue(w[i]) ? v : "";
      r.target = canon;
    } else if (o == "--mangle-hw-s" || o == "--mangle-mac-s" || o == "--mangle-mac-d") {
      slot = o == "--mangle-mac-d" ? o : "--mangle-hw-s";
      canon = macText(v);
    } else if (o == "--mangle-ip-s" || o == "--mangle-ip-d") {
      canon = ipv4Text(v);
    } else {
      if (!plainValue(w[i])) r.broken = "a value no listing shows";
      r.unsafe = "an option the plug-in never writes: " + o;
      if (!neg.empty()) r.rest.push_back("!");
      r.rest.push_back(o);
      r.rest.push_back(v);
      continue;
    }
    if (canon.empty()) r.broken = "bad value for " + o + ": \"" + v + "\"";
    r.slotIs(slot, neg + canon);
  }
  // The stock tool takes no other hardware length and lists none.
  bool hasLength = false;
  for (const auto& [o, v] : r.slots) hasLength = hasLength || o == "-a";
  if (!hasLength) r.slotIs("-a", "6");
  return r;
}

std::string arptablesKey(const Rule& r) {
  return r.key({"-s", "-d", "-i", "-o", "-a", "--arpop", "-j", "--mangle-hw-s", "--mangle-ip-s",
                "--mangle-mac-d", "--mangle-ip-d"},
               6);
}

std::vector<std::string> keyWords(const std::string& key) {
  std::vector<std::string> out;
  if (std::optional<std::vector<Word>> w = splitWords(key))
    for (Word& x : *w) out.push_back(std::move(x.text));
  return out;
}

Acl::ListedRule iptablesListed(std::string_view tool, const std::string& line,
                               std::size_t position) {
  Acl::ListedRule l;
  l.line = line;
  l.position = position;
  std::optional<std::vector<Word>> w = splitWords(line);
  const std::string tagged = "--comment " + quotedText(ruleComment);
  Rule r;
  if (!w) {
    r.broken = "unbalanced quotes";
    r.tagged = line.find(tagged) != std::string::npos;
  } else {
    r = readIptables(*w, 2, tool == "ip6tables");
    r.tagged = r.tagged || (!r.broken.empty() && line.find(tagged) != std::string::npos);
  }
  if (!r.tagged) return {};
  if (!r.broken.empty()) {
    // Never equal to a key the plug-in makes.
    l.key = "unreadable: " + line;
    l.unsafe = r.broken;
    return l;
  }
  l.key = iptablesKey(r);
  l.unsafe = r.unsafe;
  if (!l.unsafe.empty()) return l;
  const std::string n = std::to_string(position);
  const std::string t(tool);
  l.checkArgv = {t, "-t", "mangle", "-S", "PREROUTING", n};
  l.deleteArgv = {t, "-t", "mangle", "-D", "PREROUTING", n};
  return l;
}

Acl::ListedRule arptablesListed(const std::string& line, std::size_t position) {
  Acl::ListedRule l;
  l.line = line;
  l.position = position;
  std::optional<std::vector<Word>> w = splitWords(line);
  // The plug-in's dialect lists "-A OUT ..."; the stock one the rule alone.
  const std::size_t from = w && w->size() > 1 && (*w)[0].text == "-A" ? 2 : 0;
  Rule r;
  if (!w)
    r.broken = "unbalanced quotes";
  else
    r = readArptables(*w, from);
  const bool mangle =
      r.target == "mangle" || (!r.broken.empty() && line.find("-j mangle") != std::string::npos);
  if (!mangle) return {};
  if (!r.broken.empty()) {
    l.key = "unreadable: " + line;
    l.unsafe = r.broken;
    return l;
  }
  l.key = arptablesKey(r);
  l.unsafe = r.unsafe;
  if (!l.unsafe.empty()) return l;
  l.deleteArgv = {"arptables", "-D", "OUT"};
  for (std::string& k : keyWords(l.key)) l.deleteArgv.push_back(std::move(k));
  return l;
}

}  // namespace

bool interfaceNameOk(std::string_view s) {
  if (s.empty() || s.size() > 15 || s == "." || s == ".." || s[0] == '-' || s[0] == '!')
    return false;
  for (unsigned char c : s)
    if (!printable(c) || c == '/' || c == ':' || c == '"' || c == '\'' || c == '\\') return false;
  return true;
}

std::vector<std::string> listingArgv(std::string_view tool) {
  if (tool == "arptables") return {"arptables", "-L", "OUT", "-n"};
  return {std::string(tool), "-t", "mangle", "-S", "PREROUTING"};
}

std::vector<Acl::ListedRule> listedRules(std::string_view tool, std::string_view listing) {
  std::vector<Acl::ListedRule> out;
  std::size_t position = 0;
  while (!listing.empty()) {
    const std::size_t end = listing.find('\n');
    const std::string line(listing.substr(0, end));
    listing = end == std::string_view::npos ? std::string_view() : listing.substr(end + 1);
    Acl::ListedRule l;
    if (tool == "arptables") {
      if (line.empty() || line.starts_with("Chain ")) continue;
      l = arptablesListed(line, ++position);
    } else {
      if (!line.starts_with("-A PREROUTING ")) continue;
      l = iptablesListed(tool, line, ++position);
    }
    if (!l.key.empty()) out.push_back(std::move(l));
  }
  return out;
}

std::string ruleKeyOfLine(std::string_view line) {
  if (line.ends_with(quiet)) line.remove_suffix(quiet.size());
  const std::optional<std::vector<Word>> w = splitWords(Dravo::namespacedCommandOf(line).command);
  if (!w || w->empty()) return "";
  const std::string& tool = (*w)[0].text;
  if (tool == "arptables") {
    if (w->size() < 3 || (*w)[2].text != "OUT") return "";
    const Rule r = readArptables(*w, 3);
    return r.broken.empty() ? arptablesKey(r) : "";
  }
  if (tool != "iptables" && tool != "ip6tables") return "";
  if (w->size() < 5 || (*w)[1].text != "-t" || (*w)[2].text != "mangle" ||
      (*w)[4].text != "PREROUTING")
    return "";
  const Rule r = readIptables(*w, 5, tool == "ip6tables");
  return r.broken.empty() ? iptablesKey(r) : "";
}

}  // namespace Routing::Fhrp::Firewall
