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

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(KeyStrep, ExactTextAndRoundTrip) {
  const IntfSubnetPair a = isp("Vlan10", "10.0.0.0/24");
  const std::string aText = kIsp + "'intfId': 'Vlan10', 'subnet': '10.0.0.0/24'})";
  EXPECT_EQ(valueToStrep(a).stdString(), aText);
  EXPECT_EQ(printed(a), aText);
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(aText), a);

  const VirtualIpBacklogKey b = bk("red", "10.0.0.1/24", "Ethernet1");
  const std::string bText =
      kBk + "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24") + ", 'intfId': 'Ethernet1'})";
  EXPECT_EQ(valueToStrep(b).stdString(), bText);
  EXPECT_EQ(printed(b), bText);
  EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(bText), b);

  // Quotes, backslashes and IPv6 survive the trip.
  for (const IntfSubnetPair& v : {isp("it's\\x", "2001:db8::/32"), isp("", "")})
    EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(valueToStrep(v)), v) << v;
  for (const VirtualIpBacklogKey& v : {bk("b'l\\ue", "2001:db8::1/64", "Vlan20"), bk("", "", "")})
    EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(valueToStrep(v)), v) << v;

  // The default value prints as empty texts and parses back to a default.
  EXPECT_EQ(valueToStrep(IntfSubnetPair()).stdString(), kIsp + "'intfId': '', 'subnet': ''})");
  EXPECT_TRUE(!Kiv::strepToValue<IntfSubnetPair>(valueToStrep(IntfSubnetPair())));
  EXPECT_TRUE(!Kiv::strepToValue<VirtualIpBacklogKey>(valueToStrep(VirtualIpBacklogKey())));
  EXPECT_FALSE(!isp("Vlan10", ""));
  EXPECT_FALSE(!isp("", "10.0.0.0/8"));
  EXPECT_FALSE(!bk("", "", "Vlan1"));
  EXPECT_FALSE(!bk("red", "", ""));
}

TEST(KeyStrep, AttributesInAnyOrderMissingOrRepeated) {
  EXPECT_TRUE(!Kiv::strepToValue<IntfSubnetPair>(kIsp + "})"));
  EXPECT_TRUE(!Kiv::strepToValue<VirtualIpBacklogKey>(kBk + "})"));
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(kIsp + "'subnet': '10.1.0.0/16', 'intfId': 'Eth2'})"),
            isp("Eth2", "10.1.0.0/16"));
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(kIsp + "'subnet': '10.1.0.0/16'})"),
            isp("", "10.1.0.0/16"));
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(kIsp + "'intfId': 'a', 'intfId': 'b'})"),
            isp("b", ""));
  EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(kBk + "'intfId': 'Eth1', 'vrfIpWithMask': " +
                                                   vrfIpStrep("red", "10.0.0.1/24") + "})"),
            bk("red", "10.0.0.1/24", "Eth1"));
  EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(kBk + "'intfId': 'Eth1'})"), bk("", "", "Eth1"));
  EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(
                kBk + "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24") +
                ", 'vrfIpWithMask': " + vrfIpStrep("blue", "10.0.0.2/32") + "})"),
            bk("blue", "10.0.0.2/32", ""));
  // A blank in a token matches any run of white space, also none.
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(
                "Value ( 'Routing::Fhrp::IntfSubnetPair' ,**{'intfId':'e1'\n} ) \t"),
            isp("e1", ""));
}

TEST(KeyStrep, ErrorsCarryTheExactMessage) {
  const std::string a = valueToStrep(isp("Vlan10", "10.0.0.0/24")).stdString();
  const std::string b = valueToStrep(bk("red", "10.0.0.1/24", "Eth1")).stdString();
  // Blanks after ") " belong to the value; the column is the first byte left over.
  EXPECT_EQ(Kiv::strepToValue<IntfSubnetPair>(a + "  "), isp("Vlan10", "10.0.0.0/24"));
  EXPECT_EQ(parseError<IntfSubnetPair>(a + "x"),
            "junk at column " + std::to_string(a.size()) + " deserializing " + a + "x");
  EXPECT_EQ(parseError<IntfSubnetPair>(a + "  )"),
            "junk at column " + std::to_string(a.size() + 2) + " deserializing " + a + "  )");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(b + " " + b),
            "junk at column " + std::to_string(b.size() + 1) + " deserializing " + b + " " + b);

  EXPECT_EQ(parseError<IntfSubnetPair>(kIsp), "premature end of value type IntfSubnetPair");
  EXPECT_EQ(parseError<IntfSubnetPair>(kIsp + "'intfId': 'e1' "),
            "premature end of value type IntfSubnetPair");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(kBk + "'intfId': 'e1'"),
            "premature end of value type VirtualIpBacklogKey");
  EXPECT_EQ(parseError<IntfSubnetPair>(kIsp + "'intfId': 'e1', 'mask': '1'})"),
            "IntfSubnetPair has no such attribute: mask");
  EXPECT_EQ(parseError<VirtualIpBacklogKey>(kBk + "'subnet': ''})"),
            "VirtualIpBacklogKey has no such attribute: subnet");
  // Wrong type name, bad field texts, a missing closing bracket.
  EXPECT_NE(parseError<IntfSubnetPair>(b), "");
  EXPECT_NE(parseError<IntfSubnetPair>(kIsp + "'subnet': '10.0.0.0/33'})"), "");
  EXPECT_NE(parseError<IntfSubnetPair>(a.substr(0, a.size() - 1)), "");
  EXPECT_NE(parseError<VirtualIpBacklogKey>(
                kBk + "'vrfIpWithMask': " + vrfIpStrep("red", "10.0.0.1/24") + "'intfId': ''})"),
            "");
}

TEST(KeyStrep, VrfNameLimitIsReportedThroughTheAttribute) {
  const std::string v100(100, 'v');
  const VirtualIpBacklogKey ok = Kiv::strepToValue<VirtualIpBacklogKey>(
      kBk + "'vrfIpWithMask': " + vrfIpStrep(v100, "10.0.0.1/24") + "})");
  EXPECT_EQ(ok.vrfIpWithMask().vrfName().stringValue().stdString(), v100);

  const std::string err = parseError<VirtualIpBacklogKey>(
      kBk + "'vrfIpWithMask': " + vrfIpStrep(v100 + "v", "10.0.0.1/24") + "})");
  EXPECT_NE(err.find("VrfName::bytes > 100 not allowed"), std::string::npos) << err;
  EXPECT_NE(err.find("vrfIpWithMask"), std::string::npos) << err;
}

// Checks all six comparisons of a and b against the expected sign of a - b.
template <class T>
void expectOrder(const T& a, const T& b, int sign) {
  SCOPED_TRACE(valueToStrep(a).stdString() + " vs " + valueToStrep(b).stdString());
  EXPECT_EQ(a == b, sign == 0);
  EXPECT_EQ(a != b, sign != 0);
  EXPECT_EQ(a < b, sign < 0);
  EXPECT_EQ(a <= b, sign <= 0);
  EXPECT_EQ(a > b, sign > 0);
  EXPECT_EQ(a >= b, sign >= 0);
  EXPECT_EQ(b<a, sign> 0);
}

TEST(KeyOrder, LexicographicInDeclarationOrder) {
  // The interface decides before the subnet, whatever the subnet.
  expectOrder(isp("Eth1", "10.9.0.0/16"), isp("Eth2", "10.0.0.0/16"), -1);
  expectOrder(isp("Eth2", "10.0.0.0/16"), isp("Eth1", "10.9.0.0/16"), 1);
  expectOrder(isp("Eth1", "10.0.0.0/16"), isp("Eth1", "10.9.0.0/16"), -1);
  expectOrder(isp("Eth1", "10.0.0.0/24"), isp("Eth1", "10.0.0.0/16"), 1);
  expectOrder(isp("Eth1", "10.0.0.0/24"), isp("Eth1", "10.0.0.0/24"), 0);

  // VRF and address-with-mask decide before the interface.
  expectOrder(bk("blue", "10.0.0.9/24", "Eth9"), bk("red", "10.0.0.1/24", "Eth1"), -1);
  expectOrder(bk("red", "10.0.0.1/24", "Eth9"), bk("red", "10.0.0.2/24", "Eth1"), -1);
  expectOrder(bk("red", "10.0.0.1/25", "Eth1"), bk("red", "10.0.0.1/24", "Eth9"), 1);
  expectOrder(bk("red", "10.0.0.1/24", "Eth1"), bk("red", "10.0.0.1/24", "Eth2"), -1);
  expectOrder(bk("red", "10.0.0.1/24", "Eth2"), bk("red", "10.0.0.1/24", "Eth2"), 0);
}

TEST(KeyHash, FixedFromRunToRunAndBitReversed) {
  // Computed once outside this program from the byte-level hash definitions.
  EXPECT_EQ(isp("Vlan10", "10.0.0.0/24").hash(), 0xcf18432au);
  EXPECT_EQ(isp("Ethernet3", "2001:db8::/64").hash(), 0x2dfb20d2u);
  EXPECT_EQ(IntfSubnetPair().hash(), 0x3ee8dab3u);
  EXPECT_EQ(bk("red", "10.0.0.1/24", "Ethernet1").hash(), 0xf39dc7e6u);
  EXPECT_EQ(bk("default", "2001:db8::1/64", "Vlan20").hash(), 0x20d9595du);
  EXPECT_EQ(VirtualIpBacklogKey().hash(), 0xbe4df709u);

  const IntfSubnetPair a = isp("Vlan10", "10.0.0.0/24");
  EXPECT_EQ(a.hash(), Kiv::bitReverse(a.intfId().hash() ^ a.subnet().hash()));
  EXPECT_EQ(kivHash(a), a.hash());
  const VirtualIpBacklogKey b = bk("red", "10.0.0.1/24", "Ethernet1");
  EXPECT_EQ(b.hash(), Kiv::bitReverse(b.vrfIpWithMask().vrfName().hash() ^
                                      b.vrfIpWithMask().ipWithMask().hash() ^ b.intfId().hash()));
  EXPECT_EQ(kivHash(b), b.hash());
  // Equal values hash equal; a parsed copy is equal.
  EXPECT_EQ(Kiv::strepToValue<VirtualIpBacklogKey>(valueToStrep(b)).hash(), b.hash());
}

}  // namespace
}  // namespace Routing::Fhrp
