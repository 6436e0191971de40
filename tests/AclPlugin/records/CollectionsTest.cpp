// The records' collections: find-or-create refuses other constructor
// parameters with the exact text and leaves the record alone.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "AclPlugin/records/LocalVipCollection.h"
#include "AclPlugin/records/LocalVipSubnetCollection.h"

namespace Routing::Fhrp {
namespace {

using Dravo::IntfId;
using Dravo::IpGenAddr;
using Dravo::NamespaceName;

template <class F>
std::string nameInUse(F&& f) {
  try {
    f();
  } catch (const Kiv::NameInUseException& e) {
    return e.what();
  }
  ADD_FAILURE() << "no NameInUseException";
  return "";
}

TEST(LocalVipCollection, FindOrCreateKeepsTheRecordAndRefusesAnotherNamespace) {
  LocalVipMap map;
  const VrfIpPair key(L3::VrfName("red"), IpGenAddr("10.0.0.1"));
  Kiv::Ptr<LocalVipStatus> vip = localVipIs(map, key, NamespaceName("ns-red"));
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");
  EXPECT_EQ(localVipIs(map, key, NamespaceName("ns-red")), vip);
  EXPECT_EQ(nameInUse([&] { localVipIs(map, key, NamespaceName("ns-blue")); }),
            "Reinstantiating the entity with name Value('Routing::Fhrp::VrfIpPair', ** "
            "{'vrfName': 'red', 'ipAddr': '10.0.0.1'}) where constructor parameter attribute "
            "_netNs has a different value of ns-blue than the current value of ns-red not allowed");
  EXPECT_EQ(localVip(map, key), vip);
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth1")), "eth1");
  // The same address in another VRF is another record.
  EXPECT_NE(localVipIs(map, VrfIpPair(L3::VrfName("blue"), key.ipAddr()), NamespaceName("x")), vip);
}

TEST(LocalVipSubnetCollection, FirstDifferingParameterIsReported) {
  LocalVipSubnetMap map;
  const IntfSubnetPair key(IntfId("Vlan10"), Dravo::IpGenPrefix("10.0.0.0/24"));
  auto subnetIs = [&](const char* dev, const char* vrf, const char* ns) {
    return localVipSubnetIs(map, key, dev, L3::VrfName(vrf), NamespaceName(ns));
  };
  Kiv::Ptr<LocalVipSubnetStatus> s = subnetIs("vlan10", "red", "ns-red");
  EXPECT_EQ(subnetIs("vlan10", "red", "ns-red"), s);
  const std::string head =
      "Reinstantiating the entity with name Value('Routing::Fhrp::IntfSubnetPair', ** "
      "{'intfId': 'Vlan10', 'subnet': '10.0.0.0/24'}) where constructor parameter attribute ";
  // Each parameter in turn is the first to differ.
  for (auto [dev, vrf, tail] :
       {std::tuple{"vlan11", "blue",
                   "_intfDevName has a different value "
                   "of vlan11 than the current value of vlan10"},
        {"vlan10", "blue", "_vrfName has a different value of blue than the current value of red"},
        {"vlan10", "red", "_netNs has a different value of ns-b than the current value of ns-red"}})
    EXPECT_EQ(nameInUse([&] { subnetIs(dev, vrf, "ns-b"); }), head + tail + " not allowed");
  EXPECT_EQ(localVipSubnet(map, key), s);
  EXPECT_EQ(s->intfDevName(), "vlan10");
}

}  // namespace
}  // namespace Routing::Fhrp
