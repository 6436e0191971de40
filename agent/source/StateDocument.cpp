#include "agent/source/StateDocument.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <nlohmann/json.hpp>

#include "platform/kiv/Exception.h"

namespace Agent {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kShownBytes = 64;     // of one echoed value
constexpr std::size_t kMessageBytes = 400;  // of a place or a reason
constexpr std::size_t kIntfIdBytes = 64;    // "Ethernet3/1/4.4094" and the like
constexpr std::size_t kNetNsBytes = 255;    // a file name under /run/netns

// The bytes of the UTF-8 character that starts with lead.
std::size_t utf8Length(unsigned char lead) {
  return lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
}

// s with control characters (NUL among them) escaped as JSON escapes them,
// and with quotes also '"' and '\\', so that no document can end a message
// line early or forge one of its own; cut to at most max bytes of output,
// never inside an escape or a UTF-8 character. Sets *wasCut when cut.
std::string escaped(std::string_view s, bool quotes, std::size_t max, bool* wasCut) {
  static const char hex[] = "0123456789abcdef";
  std::string out;
  *wasCut = false;
  for (std::size_t i = 0; i < s.size();) {
    const auto u = static_cast<unsigned char>(s[i]);
    std::size_t len = 1;
    std::string piece;
    if (u == '\n')
      piece = "\\n";
    else if (u == '\t')
      piece = "\\t";
    else if (u == '\r')
      piece = "\\r";
    else if (u < 0x20 || u == 0x7f)
      piece = std::string("\\u00") + hex[u >> 4] + hex[u & 15];
    else if (quotes && (u == '"' || u == '\\'))
      piece = std::string("\\") + s[i];
    else
      piece = s.substr(i, len = std::min(utf8Length(u), s.size() - i));
    if (out.size() + piece.size() > max) {
      *wasCut = true;
      break;
    }
    out += piece;
    i += len;
  }
  return out;
}

// One line of bounded length: escaped, and cut with an ellipsis.
std::string oneLine(std::string_view s, std::size_t max) {
  bool wasCut;
  std::string out = escaped(s, false, max, &wasCut);
  return wasCut ? out + "..." : out;
}

}  // namespace

StateDocumentError::StateDocumentError(std::string place, std::string reason)
    : std::runtime_error(place.empty() ? oneLine(reason, kMessageBytes)
                                       : oneLine(place, kMessageBytes) + ": " +
                                             oneLine(reason, kMessageBytes)),
      place_(oneLine(place, kMessageBytes)),
      reason_(oneLine(reason, kMessageBytes)) {}

namespace {

[[noreturn]] void refuse(const std::string& place, const std::string& reason) {
  throw StateDocumentError(place, reason);
}

// The pointer of a member (escaped as JSON pointers escape '~' and '/'; a
// long name cut with an ellipsis).
std::string member(const std::string& at, std::string_view name) {
  std::string pointer;
  for (char c : name.substr(0, kShownBytes))
    pointer += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
  bool wasCut;
  pointer = escaped(pointer, false, kShownBytes, &wasCut);
  return at + "/" + pointer + (wasCut || name.size() > kShownBytes ? "..." : "");
}
std::string item(const std::string& at, std::size_t i) {
  return at + "/" + std::to_string(i);
}
// A value as a message shows it: quoted, escaped as in JSON and cut to
// kShownBytes with an ellipsis.
std::string inQuotes(std::string_view s) {
  bool wasCut;
  const std::string shown = escaped(s, true, kShownBytes, &wasCut);
  return "\"" + shown + "\"" + (wasCut ? "..." : "");
}

// Every text the agent takes from a document: a NUL would end it early in
// the C strings it becomes ("10.0.10.1\0junk/24" would read as 10.0.10.1).
const std::string& noNul(const std::string& s, const std::string& at) {
  if (s.find('\0') != std::string::npos) refuse(at, inQuotes(s) + " holds a NUL character");
  return s;
}

const Json& needObject(const Json& j, const std::string& at) {
  if (!j.is_object()) refuse(at, std::string("expected an object, not ") + j.type_name());
  return j;
}
const Json& needArray(const Json& j, const std::string& at) {
  if (!j.is_array()) refuse(at, std::string("expected a list, not ") + j.type_name());
  return j;
}
std::string needString(const Json& j, const std::string& at) {
  if (!j.is_string()) refuse(at, std::string("expected a string, not ") + j.type_name());
  return noNul(j.get_ref<const std::string&>(), at);
}

// A name that lands in trace lines and log messages: no control characters.
const std::string& printableName(const std::string& s, const std::string& at, const char* what) {
  for (char c : noNul(s, at))
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      refuse(at, std::string(what) + " " + inQuotes(s) + " holds a control character");
  return s;
}

void onlyFields(const Json& j, const std::string& at,
                std::initializer_list<std::string_view> known) {
  for (const auto& [name, value] : j.items())
    if (std::find(known.begin(), known.end(), name) == known.end())
      refuse(member(at, name), "unknown field");
}

const Json& required(const Json& j, const std::string& at, const char* name) {
  if (!j.contains(name)) refuse(member(at, name), "required field missing");
  return j[name];
}

// A name that goes unquoted into a shell command line (see the header).
std::string safeName(const Json& j, const std::string& at, std::size_t maxLen, const char* what) {
  std::string s = needString(j, at);
  if (s.empty() || s.size() > maxLen)
    refuse(at, std::string(what) + " " + inQuotes(s) + " must be 1 to " + std::to_string(maxLen) +
                   " bytes long");
  for (char c : s) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              std::string_view("_.@:+-").find(c) != std::string_view::npos;
    if (!ok)
      refuse(at, std::string(what) + " " + inQuotes(s) + " may hold only A-Z a-z 0-9 _ . @ : + -");
  }
  if (s[0] == '-') refuse(at, std::string(what) + " " + inQuotes(s) + " must not start with '-'");
  // Not a file name in /run/netns, and not a device name to the kernel.
  if (s == "." || s == "..") refuse(at, std::string(what) + " " + inQuotes(s) + " is not allowed");
  return s;
}

// A device name: safe, and one the kernel and iptables take literally.
std::string deviceName(const Json& j, const std::string& at) {
  std::string s = safeName(j, at, 15, "device name");
  if (s.find('+') != std::string::npos)
    refuse(at,
           "device name " + inQuotes(s) + " must not hold '+' (iptables reads it as a wildcard)");
  if (s.find(':') != std::string::npos)
    refuse(at, "device name " + inQuotes(s) + " must not hold ':' (the kernel refuses it)");
  return s;
}

L3::VrfName vrfName(const std::string& s, const std::string& at) {
  if (s.empty()) refuse(at, "empty VRF name");
  try {
    return L3::VrfName(std::string_view(printableName(s, at, "VRF name")));
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
}

// The switch's name of an interface: it shows in trace lines and messages.
Dravo::IntfId intfId(const std::string& id, const std::string& at) {
  if (id.empty() || id.size() > kIntfIdBytes)
    refuse(at, "interface id " + inQuotes(id) + " must be 1 to " + std::to_string(kIntfIdBytes) +
                   " bytes long");
  return Dravo::IntfId(printableName(id, at, "interface id"));
}

void parseInterfaces(const Json& j, const std::string& at, StateDocument& doc) {
  for (const auto& [id, value] : needObject(j, at).items()) {
    const std::string here = member(at, id);
    intfId(id, here);
    onlyFields(needObject(value, here), here, {"device"});
    doc.interfaces[Dravo::IntfId(id)] =
        deviceName(required(value, here, "device"), member(here, "device"));
  }
}

Ip::VrfState vrfState(const Json& j, const std::string& at) {
  const std::string s = needString(j, at);
  if (s == "active") return Ip::VrfState::active;
  if (s == "inactive") return Ip::VrfState::inactive;
  if (s == "deleting") return Ip::VrfState::deleting;
  refuse(at, "unknown VRF state " + inQuotes(s) + " (active, inactive or deleting)");
}

void parseVrfs(const Json& j, const std::string& at, StateDocument& doc) {
  for (const auto& [name, value] : needObject(j, at).items()) {
    const std::string here = member(at, name);
    const L3::VrfName vrf = vrfName(name, here);
    onlyFields(needObject(value, here), here, {"state", "namespace"});
    VrfEntry& e = doc.vrfs[vrf];
    if (value.contains("state")) e.state = vrfState(value["state"], member(here, "state"));
    if (vrf.isDefault() && !value.contains("namespace"))
      e.netNs = Dravo::DEFAULT_NS;
    else
      e.netNs = Dravo::NamespaceName(safeName(required(value, here, "namespace"),
                                              member(here, "namespace"), kNetNsBytes, "namespace"));
  }
}

Dravo::EthAddr mac(const Json& j, const std::string& at) {
  try {
    return Dravo::EthAddr(needString(j, at));
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
}

void parseMacs(const Json& j, const std::string& at, StateDocument& doc) {
  onlyFields(needObject(j, at), at, {"lumo", "vrrp"});
  if (j.contains("lumo")) doc.lumoMac = mac(j["lumo"], member(at, "lumo"));
  if (j.contains("vrrp")) doc.vrrpMac = mac(j["vrrp"], member(at, "vrrp"));
}

// Why an IPv4 address with its prefix length can never be a router's own,
// or null. /31 and /32 have no network or broadcast address to refuse.
const char* neverOwnV4(std::uint32_t a, unsigned maskLen) {
  if (a >> 24 == 0) return "is in 0.0.0.0/8 (this host)";
  if (a >> 24 == 127) return "is a loopback address";
  if (a >> 28 == 0xe) return "is multicast";
  if (a == 0xffffffff) return "is the broadcast address";
  if (maskLen > 30) return nullptr;
  const std::uint32_t host = (std::uint32_t{1} << (32 - maskLen)) - 1;
  if ((a & host) == 0) return "is its subnet's network address";
  if ((a & host) == host) return "is its subnet's broadcast address";
  return nullptr;
}

// The same for IPv6. An IPv6 virtual IP carries no prefix length, so its
// subnet's router anycast address (host part all zero) cannot be told and
// is not refused; IPv6 has no broadcast. Link-local addresses stay: VRRP
// for IPv6 runs on one.
const char* neverOwnV6(const Dravo::Ip6Addr::Bytes& b) {
  const bool zero10 = std::all_of(b.begin(), b.begin() + 10, [](auto x) { return x == 0; });
  const bool zero15 =
      zero10 && std::all_of(b.begin() + 10, b.end() - 1, [](auto x) { return x == 0; });
  if (zero15 && b[15] == 0) return "is the unspecified address";
  if (zero15 && b[15] == 1) return "is the loopback address";
  if (b[0] == 0xff) return "is multicast";
  if (zero10 && b[10] == 0xff && b[11] == 0xff) return "is IPv4-mapped";
  return nullptr;
}

// The longest address text, "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255",
// is 45 bytes: anything longer is refused before the address parsers quote it.
void tooLongForAnAddress(const std::string& text, const std::string& at) {
  if (text.size() > 49) refuse(at, inQuotes(text) + " is too long for an address");
}

// The key of a virtual IP, one overload per family.
Routing::Fhrp::VrfIpWithMaskPair vipKey(Routing::Fhrp::VrfIpWithMaskPair*, const L3::VrfName& vrf,
                                        const std::string& text, const std::string& at) {
  tooLongForAnAddress(text, at);
  Dravo::IpGenAddrWithMask a;
  try {
    a = Dravo::IpGenAddrWithMask(text);
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
  if (!a.address().isV4()) refuse(at, inQuotes(text) + " is not an IPv4 address");
  if (a.maskLen() == 0)
    refuse(at, inQuotes(text) + ": a virtual IP's prefix length must be 1 to 32");
  if (const char* why = neverOwnV4(a.address().v4Addr().value(), a.maskLen()))
    refuse(at, inQuotes(text) + " " + why + ": never a router's own address");
  return {vrf, a};
}

Routing::Fhrp::VrfIpPair vipKey(Routing::Fhrp::VrfIpPair*, const L3::VrfName& vrf,
                                const std::string& text, const std::string& at) {
  if (text.find('/') != std::string::npos)
    refuse(at, inQuotes(text) + ": an IPv6 virtual IP takes no prefix length");
  tooLongForAnAddress(text, at);
  Dravo::IpGenAddr a;
  try {
    a = Dravo::IpGenAddr(text);
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
  if (!a.isV6()) refuse(at, inQuotes(text) + " is not an IPv6 address");
  if (const char* why = neverOwnV6(a.bytes()))
    refuse(at, inQuotes(text) + " " + why + ": never a router's own address");
  return {vrf, a};
}

void parseVipInterfaces(const Json& j, const std::string& at, const StateDocument& doc,
                        VipEntry& vip) {
  auto add = [&](const std::string& id, const std::string& value, const std::string& place) {
    if (!doc.interfaces.contains(Dravo::IntfId(id)))
      refuse(place, "unknown interface " + inQuotes(id) + " (not in /interfaces)");
    vip.interfaces[Dravo::IntfId(id)] = Kiv::String8(value);
  };
  if (j.is_array()) {
    for (std::size_t i = 0; i < j.size(); ++i) add(needString(j[i], item(at, i)), "", item(at, i));
  } else if (j.is_object()) {
    for (const auto& [id, value] : j.items())
      add(noNul(id, member(at, id)), needString(value, member(at, id)), member(at, id));
  } else {
    refuse(at, std::string("expected a list or an object, not ") + j.type_name());
  }
}

// What the plug-in keys its records by: VRF and address, without the mask.
Routing::Fhrp::VrfIpPair recordKey(const Routing::Fhrp::VrfIpWithMaskPair& k) {
  return k.vrfIp();
}
Routing::Fhrp::VrfIpPair recordKey(const Routing::Fhrp::VrfIpPair& k) {
  return k;
}

template <class Key>
void parseVips(const Json& j, const std::string& at, const StateDocument& doc,
               std::map<Key, VipEntry>& out) {
  // Record key -> the key and where it was first given.
  std::map<Routing::Fhrp::VrfIpPair, std::pair<Key, std::string>> seen;
  for (std::size_t i = 0; i < needArray(j, at).size(); ++i) {
    const std::string here = item(at, i);
    const Json& e = needObject(j[i], here);
    onlyFields(e, here, {"vrf", "address", "namespace", "interfaces"});
    L3::VrfName vrf = L3::DEFAULT_VRF;
    if (e.contains("vrf"))
      vrf = vrfName(needString(e["vrf"], member(here, "vrf")), member(here, "vrf"));
    const std::string address = member(here, "address");
    const Key key = vipKey(static_cast<Key*>(nullptr), vrf,
                           needString(required(e, here, "address"), address), address);
    // The plug-in installs only in a VRF whose status says its namespace is usable.
    auto listed = doc.vrfs.find(vrf);
    if (listed == doc.vrfs.end() && !vrf.isDefault())
      refuse(here, "VRF " + inQuotes(vrf.stringValue().view()) +
                       " is not in /vrfs: its virtual IPs would never be installed");
    VipEntry vip;
    if (e.contains("namespace"))
      vip.netNs = Dravo::NamespaceName(
          safeName(e["namespace"], member(here, "namespace"), kNetNsBytes, "namespace"));
    else
      vip.netNs = listed != doc.vrfs.end() ? listed->second.netNs : Dravo::DEFAULT_NS;
    if (e.contains("interfaces"))
      parseVipInterfaces(e["interfaces"], member(here, "interfaces"), doc, vip);
    if (auto [it, fresh] = seen.try_emplace(recordKey(key), key, here); !fresh)
      refuse(here, it->second.first == key
                       ? "duplicate virtual IP, first given at " + it->second.second
                       : "the address is given at " + it->second.second +
                             " with another prefix length (one record per VRF and address)");
    out.emplace(key, std::move(vip));
  }
}

// A multicast MAC is never a router's own; the lumo MAC is the ARP sender
// MAC of the subnet rule each IPv4 virtual IP under /32 gets.
void checkMacs(const StateDocument& doc) {
  for (auto [mac, name] : {std::pair(doc.lumoMac, "lumo"), std::pair(doc.vrrpMac, "vrrp")})
    if (mac.bytes()[0] & 1)
      refuse(member("/virtualRouterMac", name), mac.stringValue().stdString() + " is multicast");
  if (!doc.lumoMac.isZero()) return;
  for (const auto& [key, vip] : doc.virtualIps) {
    if (key.ipWithMask().maskLen() == 32) continue;
    const std::string which = key.ipWithMask().stringValue().stdString() + " in VRF " +
                              inQuotes(key.vrfName().stringValue().view());
    refuse("/virtualRouterMac/lumo", "missing or all zero, but the virtual IP " + which +
                                         " needs it as the sender MAC of its ARP rule");
  }
}

// The parser's own tree builder, but every parse failure (a number too large
// for a double among them, which the parser reports without a place) is
// refused with the line and column of the byte it stopped at.
class RefusingDomParser : public nlohmann::detail::json_sax_dom_parser<Json> {
 public:
  RefusingDomParser(Json& root, std::string_view text) : json_sax_dom_parser(root), text_(text) {}

  // Hides the base's: sax_parse calls it through this type.
  [[noreturn]] bool parse_error(std::size_t byte, const std::string&,
                                const nlohmann::detail::exception& e) {
    // The parser counts bytes from 1 and points at the last one it read.
    std::size_t line = 1, column = 0;
    for (std::size_t i = 0; i < byte && i < text_.size(); ++i) {
      column = text_[i] == '\n' ? 0 : column + 1;
      line += text_[i] == '\n';
    }
    // "[json.exception.parse_error.101] parse error at line 2, column 12: why"
    std::string why = e.what();
    if (std::size_t tag = why.find("] "); why[0] == '[' && tag != std::string::npos)
      why.erase(0, tag + 2);
    if (why.starts_with("parse error"))
      if (std::size_t colon = why.find(": "); colon != std::string::npos) why.erase(0, colon + 2);
    refuse("line " + std::to_string(line) + ", column " + std::to_string(column), why);
  }

 private:
  std::string_view text_;
};

}  // namespace

StateDocument parseStateDocument(std::string_view text) {
  Json root;
  RefusingDomParser sax(root, text);
  Json::sax_parse(text, &sax);
  StateDocument doc;
  onlyFields(needObject(root, "/"), "",
             {"interfaces", "vrfs", "virtualRouterMac", "virtualIps", "virtualIps6"});
  // Interfaces and VRFs first: the virtual IPs refer to them.
  if (root.contains("interfaces")) parseInterfaces(root["interfaces"], "/interfaces", doc);
  if (root.contains("vrfs")) parseVrfs(root["vrfs"], "/vrfs", doc);
  if (root.contains("virtualRouterMac"))
    parseMacs(root["virtualRouterMac"], "/virtualRouterMac", doc);
  if (root.contains("virtualIps"))
    parseVips(root["virtualIps"], "/virtualIps", doc, doc.virtualIps);
  if (root.contains("virtualIps6"))
    parseVips(root["virtualIps6"], "/virtualIps6", doc, doc.virtualIps6);
  checkMacs(doc);
  return doc;
}

StateDocument loadStateDocument(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) refuse("", std::string("cannot read: ") + std::strerror(errno));
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) refuse("", std::string("cannot read: ") + std::strerror(errno));
  return parseStateDocument(text);
}

}  // namespace Agent
