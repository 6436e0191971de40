#include "agent/source/EntryChecks.h"

#include <algorithm>

#include "platform/kiv/Exception.h"

namespace Agent::Checks {

namespace {

// The bytes of the UTF-8 character that starts with lead.
std::size_t utf8Length(unsigned char lead) {
  return lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
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

}  // namespace

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

std::string oneLine(std::string_view s, std::size_t max) {
  bool wasCut;
  std::string out = escaped(s, false, max, &wasCut);
  return wasCut ? out + "..." : out;
}

std::string inQuotes(std::string_view s) {
  bool wasCut;
  const std::string shown = escaped(s, true, kShownBytes, &wasCut);
  return "\"" + shown + "\"" + (wasCut ? "..." : "");
}

void refuse(const std::string& place, const std::string& reason) {
  throw StateDocumentError(place, reason);
}

// A NUL would end the text early in the C strings it becomes
// ("10.0.10.1\0junk/24" would read as 10.0.10.1).
const std::string& noNul(const std::string& s, const std::string& at) {
  if (s.find('\0') != std::string::npos) refuse(at, inQuotes(s) + " holds a NUL character");
  return s;
}

const std::string& printableName(const std::string& s, const std::string& at, const char* what) {
  for (char c : noNul(s, at))
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      refuse(at, std::string(what) + " " + inQuotes(s) + " holds a control character");
  return s;
}

std::string safeName(const std::string& s, const std::string& at, std::size_t maxLen,
                     const char* what) {
  noNul(s, at);
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

std::string deviceName(const std::string& text, const std::string& at) {
  std::string s = safeName(text, at, 15, "device name");
  if (s.find('+') != std::string::npos)
    refuse(at,
           "device name " + inQuotes(s) + " must not hold '+' (iptables reads it as a wildcard)");
  if (s.find(':') != std::string::npos)
    refuse(at, "device name " + inQuotes(s) + " must not hold ':' (the kernel refuses it)");
  return s;
}

Dravo::NamespaceName namespaceName(const std::string& s, const std::string& at) {
  return Dravo::NamespaceName(safeName(s, at, kNetNsBytes, "namespace"));
}

L3::VrfName vrfName(const std::string& s, const std::string& at) {
  if (s.empty()) refuse(at, "empty VRF name");
  try {
    return L3::VrfName(std::string_view(printableName(s, at, "VRF name")));
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
}

Dravo::IntfId intfId(const std::string& id, const std::string& at) {
  if (id.empty() || id.size() > kIntfIdBytes)
    refuse(at, "interface id " + inQuotes(id) + " must be 1 to " + std::to_string(kIntfIdBytes) +
                   " bytes long");
  return Dravo::IntfId(printableName(id, at, "interface id"));
}

Ip::VrfState vrfState(const std::string& s, const std::string& at) {
  noNul(s, at);
  if (s == "active") return Ip::VrfState::active;
  if (s == "inactive") return Ip::VrfState::inactive;
  if (s == "deleting") return Ip::VrfState::deleting;
  refuse(at, "unknown VRF state " + inQuotes(s) + " (active, inactive or deleting)");
}

Dravo::EthAddr mac(const std::string& s, const std::string& at) {
  try {
    return Dravo::EthAddr(noNul(s, at));
  } catch (const Kiv::RangeException& e) {
    refuse(at, e.what());
  }
}

Routing::Fhrp::VrfIpWithMaskPair vip4Key(const L3::VrfName& vrf, const std::string& text,
                                         const std::string& at) {
  tooLongForAnAddress(noNul(text, at), at);
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

Routing::Fhrp::VrfIpPair vip6Key(const L3::VrfName& vrf, const std::string& text,
                                 const std::string& at) {
  noNul(text, at);
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

}  // namespace Agent::Checks
