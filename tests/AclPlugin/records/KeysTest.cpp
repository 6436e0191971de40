// The two value keys: exact text forms, parsing (order, defaults, repeats,
// errors with their exact messages), order, hash stability.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "AclPlugin/keys/IntfSubnetPair.h"
#include "AclPlugin/keys/VirtualIpBacklogKey.h"

namespace Routing::Fhrp {
namespace {

using Dravo::IntfId;
using Dravo::IpGenAddrWithMask;
using Dravo::IpGenPrefix;

const std::string kIsp = "Value('Routing::Fhrp::IntfSubnetPair', ** {";
const std::string kBk = "Value('Routing::Fhrp::VirtualIpBacklogKey', ** {";

IntfSubnetPair isp(const char* intf, const char* subnet) {
  return IntfSubnetPair(IntfId(intf), IpGenPrefix(subnet));
}
VirtualIpBacklogKey bk(const char* vrf, const char* ipWithMask, const char* intf) {
  return VirtualIpBacklogKey(VrfIpWithMaskPair(L3::VrfName(vrf), IpGenAddrWithMask(ipWithMask)),
                             IntfId(intf));
}
std::string vrfIpStrep(const std::string& vrf, const char* ipWithMask) {
  return "Value('Routing::Fhrp::VrfIpWithMaskPair', ** {'vrfName': '" + vrf + "', 'ipWithMask': '" +
         ipWithMask + "'})";
}

// Parses "Value('<type>', ** {" + attrs: the frame with the given attributes.
IntfSubnetPair ispOf(const std::string& attrs) {
  return Kiv::strepToValue<IntfSubnetPair>(kIsp + attrs);
}
VirtualIpBacklogKey bkOf(const std::string& attrs) {
  return Kiv::strepToValue<VirtualIpBacklogKey>(kBk + attrs);
}

// The RangeException text of parsing `text` as T; fails the test when it parses.
template <class T>
std::string parseError(const std::string& text) {
  try {
    Kiv::strepToValue<T>(Kiv::String8(text));
  } catch (const Kiv::RangeException& e) {
    return e.what();
  }
  ADD_FAILURE() << "parsed: " << text;
  return "";
}

TEST(KeyStrep, ExactText) {
  const IntfSubnetPair a = isp("Vlan10", "10.0.0.0/24");
  const std::string aText = kIsp + "'intfId': 'Vlan10', 'subnet': '10.0.0.0/24'})";
  std::ostringstream printed;
  printed << a;
  EXPECT_EQ(printed.str(), aText);
  EXPECT_EQ(valueToStrep(a).stdString(), aText);
  EXPECT_EQ(
      valueToStrep(bk("red", "10.0.0.1/24", "Ethernet1")).stdString(),
      kBk + "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24") + ", 'intfId': 'Ethernet1'})");
  EXPECT_EQ(valueToStrep(IntfSubnetPair()).stdString(), kIsp + "'intfId': '', 'subnet': ''})");

  // Printing and parsing back any text is fuzzed (scripts/fuzz.sh).
  // Any set field makes a key non-default.
  EXPECT_TRUE(!IntfSubnetPair() && !VirtualIpBacklogKey());
  EXPECT_FALSE(!isp("Vlan10", "") || !isp("", "10.0.0.0/8"));
  EXPECT_FALSE(!bk("", "", "Vlan1") || !bk("red", "", ""));
}

TEST(KeyStrep, AttributesInAnyOrderMissingOrRepeated) {
  const std::string red = "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24");
  EXPECT_EQ(ispOf("'subnet': '10.1.0.0/16', 'intfId': 'Eth2'})"), isp("Eth2", "10.1.0.0/16"));
  EXPECT_EQ(ispOf("'intfId': 'a', 'intfId': 'b'})"), isp("b", ""));
  EXPECT_EQ(bkOf("'intfId': 'Eth1', " + red + "})"), bk("red", "10.0.0.1/24", "Eth1"));
  EXPECT_EQ(bkOf("'intfId': 'Eth1'})"), bk("", "", "Eth1"));
}

TEST(KeyStrep, ErrorsCarryTheExactMessage) {
  const std::string a = valueToStrep(isp("Vlan10", "10.0.0.0/24")).stdString();
  const std::string b = valueToStrep(bk("red", "10.0.0.1/24", "Eth1")).stdString();
  // Blanks after ") " belong to the value; the column is the first byte left over.
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(a + "  "), isp("Vlan10", "10.0.0.0/24"));
  EXPECT_EQ(parseError<IntfSubnetPair>(a + "x"),
            "junk at column " + std::to_string(a.size()) + " deserializing " + a + "x");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(b + " " + b),
            "junk at column " + std::to_string(b.size() + 1) + " deserializing " + b + " " + b);

  EXPECT_EQ(parseError<IntfSubnetPair>(kIsp + "'intfId': 'e1' "),
            "premature end of value type IntfSubnetPair");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(kBk),
            "premature end of value type VirtualIpBacklogKey");
  EXPECT_EQ(parseError<IntfSubnetPair>(kIsp + "'intfId': 'e1', 'mask': '1'})"),
            "IntfSubnetPair has no such attribute: mask");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(kBk + "'subnet': ''})"),
            "VirtualIpBacklogKey has no such attribute: subnet");
  // Wrong type name, bad field texts, a missing closing bracket or comma.
  parseError<IntfSubnetPair>(b);
  parseError<IntfSubnetPair>(kIsp + "'subnet': '10.0.0.0/33'})");
  parseError<IntfSubnetPair>(a.substr(0, a.size() - 1));
  parseError<VirtualIpBacklogKey>(kBk + "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24") +
                                  "'intfId': ''})");

  // The VRF name limit, reported through the attribute.
  const std::string v100(100, 'v');
  EXPECT_EQ(
      bkOf("'vrfIpWithMask': " + vrfIpStrep(v100, "10.0.0.1/24") + "})").vrfIpWithMask(),
      VrfIpWithMaskPair(L3::VrfName(std::string_view(v100)), IpGenAddrWithMask("10.0.0.1/24")));
  const std::string err = parseError<VirtualIpBacklogKey>(
      kBk + "'vrfIpWithMask': " + vrfIpStrep(v100 + "v", "10.0.0.1/24") + "})");
  EXPECT_NE(err.find("VrfName::bytes > 100 not allowed"), std::string::npos) << err;
  EXPECT_NE(err.find("vrfIpWithMask"), std::string::npos) << err;
}

TEST(KeyOrder, LexicographicInDeclarationOrder) {
  // Each field decides only when the ones before it are equal.
  EXPECT_LT(isp("Eth1", "10.9.0.0/16"), isp("Eth2", "10.0.0.0/16"));
  EXPECT_LT(isp("Eth1", "10.0.0.0/16"), isp("Eth1", "10.0.0.0/24"));
  EXPECT_LT(bk("blue", "10.0.0.9/24", "Eth9"), bk("red", "10.0.0.1/24", "Eth1"));
  EXPECT_LT(bk("red", "10.0.0.1/24", "Eth9"), bk("red", "10.0.0.2/24", "Eth1"));
  EXPECT_LT(bk("red", "10.0.0.1/24", "Eth1"), bk("red", "10.0.0.1/24", "Eth2"));
  EXPECT_FALSE(bk("red", "10.0.0.1/24", "Eth2") < bk("red", "10.0.0.1/24", "Eth2"));
}

TEST(KeyHash, FixedFromRunToRunAndBitReversed) {
  // Computed once outside this program from the byte-level hash definitions.
  EXPECT_EQ(isp("Vlan10", "10.0.0.0/24").hash(), 0xcf18432au);
  EXPECT_EQ(isp("Ethernet3", "2001:db8::/64").hash(), 0x2dfb20d2u);
  EXPECT_EQ(bk("red", "10.0.0.1/24", "Ethernet1").hash(), 0xf39dc7e6u);
  EXPECT_EQ(VirtualIpBacklogKey().hash(), 0xbe4df709u);
  // The collections bucket by the key's own hash.
  EXPECT_EQ(kivHash(isp("Vlan10", "10.0.0.0/24")), 0xcf18432au);
  EXPECT_EQ(kivHash(VirtualIpBacklogKey()), 0xbe4df709u);
}

}  // namespace
}  // namespace Routing::Fhrp
