#include "agent/source/StateDocument.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <nlohmann/json.hpp>

#include "agent/source/EntryChecks.h"
#include "platform/kiv/Exception.h"

namespace Agent {

namespace {

using Json = nlohmann::json;
using namespace Checks;

}  // namespace

StateDocumentError::StateDocumentError(std::string place, std::string reason)
    : std::runtime_error(place.empty() ? oneLine(reason, kMessageBytes)
                                       : oneLine(place, kMessageBytes) + ": " +
                                             oneLine(reason, kMessageBytes)),
      place_(oneLine(place, kMessageBytes)),
      reason_(oneLine(reason, kMessageBytes)) {}

namespace {

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
  return Checks::safeName(needString(j, at), at, maxLen, what);
}

std::string deviceName(const Json& j, const std::string& at) {
  return Checks::deviceName(needString(j, at), at);
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
  return Checks::vrfState(needString(j, at), at);
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
  return Checks::mac(needString(j, at), at);
}

void parseMacs(const Json& j, const std::string& at, StateDocument& doc) {
  onlyFields(needObject(j, at), at, {"lumo", "vrrp"});
  if (j.contains("lumo")) doc.lumoMac = mac(j["lumo"], member(at, "lumo"));
  if (j.contains("vrrp")) doc.vrrpMac = mac(j["vrrp"], member(at, "vrrp"));
}

// The key of a virtual IP, one overload per family.
Routing::Fhrp::VrfIpWithMaskPair vipKey(Routing::Fhrp::VrfIpWithMaskPair*, const L3::VrfName& vrf,
                                        const std::string& text, const std::string& at) {
  return vip4Key(vrf, text, at);
}
Routing::Fhrp::VrfIpPair vipKey(Routing::Fhrp::VrfIpPair*, const L3::VrfName& vrf,
                                const std::string& text, const std::string& at) {
  return vip6Key(vrf, text, at);
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
