#include "agent/source/StateDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Agent::parseStateDocument;
using Agent::StateDocumentError;
using testing::HasSubstr;

// Sections that the refused documents below refer to.
const std::string kIntf = R"("interfaces": {"Vlan10": {"device": "vlan10"}})";
const std::string kRed = R"("vrfs": {"red": {"namespace": "ns-red"}})";
const std::string kLumo = R"("virtualRouterMac": {"lumo": "02:1c:73:00:00:99"})";

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

struct Refusal {
  std::string text;
  std::string place;
  std::string reason;  // a part of the reason
};

TEST(StateDocumentTest, RefusesWithPlaceAndReason) {
  const std::string longVrf(101, 'v');
  const std::string huge(1'000'000, 'x');
  // One row per refusal.
  // clang-format off
  const Refusal cases[] = {
      // JSON syntax, with line and column of the offending character (and end to end).
      {"", "line 1, column 0", "unexpected end of input"},
      {"[]", "/", "expected an object, not array"},
      // A number no double holds, even where nothing reads it.
      {R"({"colour": -1e999})", "line 1, column 17", "number overflow parsing '-1e999'"},
      // Unknown fields, at any depth; member names escaped as in JSON pointers.
      {R"({"interface": {}})", "/interface", "unknown field"},
      {R"({"vrfs": {"red": {"namespace": "ns-red", "colour": 1}}})", "/vrfs/red/colour", "unknown field"},
      {R"({"interfaces": {"Et1/1": {"dev": "et1"}}})", "/interfaces/Et1~11/dev", "unknown field"},
      // Wrong types and missing required fields.
      {R"({"virtualIps": {}})", "/virtualIps", "expected a list, not object"},
      {R"({"interfaces": {"Vlan10": {"device": 10}}})", "/interfaces/Vlan10/device", "expected a string, not number"},
      {"{" + kIntf + R"(, "virtualIps": [{"address": "10.0.0.1", "interfaces": 3}]})", "/virtualIps/0/interfaces", "expected a list or an object, not number"},
      {R"({"virtualIps": [{"vrf": "default"}]})", "/virtualIps/0/address", "required field missing"},
      {R"({"vrfs": {"red": {"state": "active"}}})", "/vrfs/red/namespace", "required field missing"},
      // Addresses: IPv4 (prefix length optional) and IPv6 (none) in their own lists.
      {R"({"virtualIps": [{"address": "10.0.0.300/24"}]})", "/virtualIps/0/address", "invalid IP address \"10.0.0.300\""},
      {R"({"virtualIps": [{"address": "10.0.0.1/33"}]})", "/virtualIps/0/address", "invalid IP address with mask"},
      {R"({"virtualIps": [{"address": "2001:db8::1/64"}]})", "/virtualIps/0/address", "is not an IPv4 address"},
      {R"({"virtualIps6": [{"address": "10.0.0.1"}]})", "/virtualIps6/0/address", "is not an IPv6 address"},
      {R"({"virtualIps6": [{"address": "2001:db8::1/64"}]})", "/virtualIps6/0/address", "takes no prefix length"},
      {R"({"virtualRouterMac": {"lumo": "02:1c:73:00:00"}})", "/virtualRouterMac/lumo", "invalid MAC address"},
      // Never a router's own address.
      {R"({"virtualIps": [{"address": "0.0.0.0"}]})", "/virtualIps/0/address", "0.0.0.0/8"},
      {R"({"virtualIps": [{"address": "255.255.255.255"}]})", "/virtualIps/0/address", "is the broadcast address"},
      {R"({"virtualIps": [{"address": "224.0.0.18"}]})", "/virtualIps/0/address", "is multicast"},
      {R"({"virtualIps": [{"address": "127.0.0.1"}]})", "/virtualIps/0/address", "loopback"},
      {R"({"virtualIps": [{"address": "10.0.0.0/24"}]})", "/virtualIps/0/address", "\"10.0.0.0/24\" is its subnet's network address"},
      {R"({"virtualIps": [{"address": "10.0.0.127/25"}]})", "/virtualIps/0/address", "is its subnet's broadcast address"},
      {R"({"virtualIps6": [{"address": "::"}]})", "/virtualIps6/0/address", "unspecified"},
      {R"({"virtualIps6": [{"address": "::1"}]})", "/virtualIps6/0/address", "loopback"},
      {R"({"virtualIps6": [{"address": "ff02::12"}]})", "/virtualIps6/0/address", "multicast"},
      {R"({"virtualIps6": [{"address": "::ffff:10.0.0.1"}]})", "/virtualIps6/0/address", "IPv4-mapped"},
      // NULs cut C strings; echoed values are escaped and cut, one line each.
      {R"({"virtualIps": [{"address": "10.0.10.1\u0000junk/24"}]})", "/virtualIps/0/address", "\"10.0.10.1\\u0000junk/24\" holds a NUL character"},
      {R"({"vrfs": {"red\u0000x": {"namespace": "ns"}}})", "/vrfs/red\\u0000x", "NUL"},
      {R"({"virtualIps": [{"address": "\n%FHRP_IPTABLES_ERROR: forged"}]})", "/virtualIps/0/address", "\"\\n%FHRP_IPTABLES_ERROR: forged\""},
      {R"({"interfaces": {"Vlan10": {"device": ")" + huge + R"("}}})", "/interfaces/Vlan10/device", "device name \"" + huge.substr(0, 64) + "\"... must be 1 to 15 bytes long"},
      {"{\"" + std::string(100, '\x7f') + "\": 1}", "/" + repeat("\\u007f", 10) + "...", "unknown field"},
      // Interface ids: a bounded length, nothing that breaks a trace line.
      {R"({"interfaces": {")" + std::string(65, 'i') + R"(": {"device": "et1"}}})", "/interfaces/" + std::string(64, 'i') + "...", "must be 1 to 64 bytes long"},
      {R"({"interfaces": {"Vlan\r10": {"device": "vlan10"}}})", "/interfaces/Vlan\\r10", "holds a control character"},
      // VRF names and states.
      {R"({"vrfs": {")" + longVrf + R"(": {"namespace": "ns"}}})", "/vrfs/" + longVrf.substr(0, 64) + "...", "VrfName::bytes > 100 not allowed"},
      {R"({"virtualIps": [{"vrf": ")" + longVrf + R"(", "address": "10.0.0.1"}]})", "/virtualIps/0/vrf", "VrfName::bytes > 100 not allowed"},
      {R"({"vrfs": {"red": {"state": "up", "namespace": "ns-red"}}})", "/vrfs/red/state", "unknown VRF state \"up\""},
      {R"({"virtualIps6": [{"vrf": "green", "address": "2001:db8::1"}]})", "/virtualIps6/0", "VRF \"green\" is not in /vrfs"},
      // Never installed, even with a namespace of its own: only a VRF with a status is.
      {R"({"virtualIps": [{"vrf": "green", "address": "10.0.0.1", "namespace": "ns-g"}]})", "/virtualIps/0", "VRF \"green\" is not in /vrfs"},
      // Interfaces of a virtual IP must be published (the list form end to end).
      {"{" + kIntf + R"(, "virtualIps6": [{"address": "2001:db8::1", "interfaces": {"Vlan99": ""}}]})", "/virtualIps6/0/interfaces/Vlan99", "unknown interface \"Vlan99\""},
      // Two entries with one key (the same address and length in one VRF).
      {"{" + kRed + R"(, "virtualIps": [{"vrf": "red", "address": "10.0.0.1/24"}, {"vrf": "red", "address": "10.0.0.2/24"}, {"vrf": "red", "address": "10.0.0.1/24"}]})", "/virtualIps/2", "duplicate virtual IP, first given at /virtualIps/0"},
      // Names that would be unsafe on a shell command line.
      {R"({"vrfs": {"red": {"namespace": "ns red"}}})", "/vrfs/red/namespace", "may hold only"},
      {R"({"vrfs": {"red": {"namespace": "-n"}}})", "/vrfs/red/namespace", "must not start with '-'"},
      {R"({"vrfs": {"red": {"namespace": ")" + std::string(256, 'n') + R"("}}})", "/vrfs/red/namespace", "1 to 255 bytes"},
      {R"({"interfaces": {"Vlan10": {"device": "vlan10-longer-xy"}}})", "/interfaces/Vlan10/device", "1 to 15 bytes"},
      {R"({"interfaces": {"Vlan10": {"device": "vlan+"}}})", "/interfaces/Vlan10/device", "must not hold '+' (iptables reads it as a wildcard)"},
      {R"({"interfaces": {"Vlan10": {"device": "vlan10:1"}}})", "/interfaces/Vlan10/device", "must not hold ':'"},
      {R"({"virtualIps": [{"address": "10.0.0.1/0"}]})", "/virtualIps/0/address", "prefix length must be 1 to 32"},
      {R"({"vrfs": {"red": {"namespace": "."}}})", "/vrfs/red/namespace", "\".\" is not allowed"},
      {R"({"virtualIps": [{"address": "10.0.0.1", "namespace": ".."}]})", "/virtualIps/0/namespace", "\"..\" is not allowed"},
      // One record per VRF and address in the plug-in, whatever the mask.
      {"{" + kLumo + R"(, "virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.1/24"}]})", "/virtualIps/1", "with another prefix length"},
      // The subnet rule of a virtual IP under /32 rewrites the ARP sender MAC to lumo.
      {R"({"virtualIps": [{"address": "10.0.0.1/24"}]})", "/virtualRouterMac/lumo", "missing or all zero, but the virtual IP 10.0.0.1/24 in VRF \"default\" needs it"},
      {R"({"virtualRouterMac": {"lumo": "00:00:00:00:00:00"}, "virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.2/31"}]})", "/virtualRouterMac/lumo", "the virtual IP 10.0.0.2/31"},
      {R"({"virtualRouterMac": {"lumo": "01:00:5e:00:00:01"}})", "/virtualRouterMac/lumo", "01:00:5e:00:00:01 is multicast"},
      {R"({"virtualRouterMac": {"vrrp": "33:33:00:00:00:01"}})", "/virtualRouterMac/vrrp", "is multicast"},
  };
  // clang-format on
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      parseStateDocument(c.text);
      ADD_FAILURE() << "accepted";
    } catch (const StateDocumentError& e) {
      EXPECT_EQ(e.place(), c.place);
      EXPECT_THAT(e.reason(), HasSubstr(c.reason));
      EXPECT_LT(std::string(e.what()).size(), 1000u);
    }
  }
  // Near misses that stay valid.
  // clang-format off
  for (const std::string& text : std::vector<std::string>{
           R"({"virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.2/32"}]})",
           "{" + kLumo + R"(, "virtualIps": [{"address": "10.0.0.0/31"}, {"address": "10.0.1.255/32"}, {"address": "10.0.2.1/30"}], "virtualIps6": [{"address": "fe80::1"}, {"address": "2001:db8::"}]})",
           "{" + kRed + R"(, "virtualIps6": [{"vrf": "red", "address": "2001:db8::1"}, {"vrf": "red", "address": "2001:db8::2"}]})",
           R"({"vrfs": {"red": {"namespace": "ns.red+1:x"}}, "virtualIps": [{"vrf": "red", "address": "10.0.0.1/24"}, {"address": "10.0.0.1/24"}], "virtualRouterMac": {"lumo": "02:00:00:00:00:01", "vrrp": "00:00:5e:00:01:01"}})"})
    // clang-format on
    EXPECT_NO_THROW(parseStateDocument(text)) << text;
}

}  // namespace
