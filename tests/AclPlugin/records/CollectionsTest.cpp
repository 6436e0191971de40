// The records' collections: find-or-create refuses other constructor
// parameters with the exact text and leaves the record alone.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

#include "AclPlugin/records/LocalVipCollection.h"
#include "AclPlugin/records/LocalVipSubnetCollection.h"

namespace Routing::Fhrp {
namespace {

using Dravo::IntfId;
using Dravo::IpGenAddr;
using Dravo::NamespaceName;

std::string nameInUse(const std::function<void()>& f) {
  try {
    f();
  } catch (const Kiv::NameInUseException& e) {
    return e.what();
  }
  ADD_FAILURE() << "no NameInUseException";
  return "";
}

TEST(RecordCollections, FindOrCreateKeepsTheRecordAndRefusesOtherParameters) {
  LocalVipMap vips;
  LocalVipSubnetMap subnets;
  const VrfIpPair vipKey(L3::VrfName("red"), IpGenAddr("10.0.0.1"));
  const IntfSubnetPair subnetKey(IntfId("Vlan10"), Dravo::IpGenPrefix("10.0.0.0/24"));
  auto subnetIs = [&](const char* dev, const char* vrf, const char* ns) {
    return localVipSubnetIs(subnets, subnetKey, dev, L3::VrfName(vrf), NamespaceName(ns));
  };
  Kiv::Ptr<LocalVipStatus> vip = localVipIs(vips, vipKey, NamespaceName("ns-red"));
  Kiv::Ptr<LocalVipSubnetStatus> subnet = subnetIs("vlan10", "red", "ns-red");
  EXPECT_EQ(localVipIs(vips, vipKey, NamespaceName("ns-red")), vip);
  EXPECT_EQ(subnetIs("vlan10", "red", "ns-red"), subnet);
  // The same address in another VRF is another record.
  EXPECT_NE(localVipIs(vips, VrfIpPair(L3::VrfName("blue"), vipKey.ipAddr()), NamespaceName("x")),
            vip);

  const std::string vipName =
      "Value('Routing::Fhrp::VrfIpPair', ** {'vrfName': 'red', 'ipAddr': '10.0.0.1'})";
  const std::string subnetName =
      "Value('Routing::Fhrp::IntfSubnetPair', ** {'intfId': 'Vlan10', 'subnet': '10.0.0.0/24'})";
  // One row per refusal: the call, the record's name, the first parameter that differs.
  const std::tuple<std::function<void()>, std::string, std::string> rows[] = {
      {[&] { localVipIs(vips, vipKey, NamespaceName("ns-blue")); }, vipName,
       "_netNs has a different value of ns-blue than the current value of ns-red"},
      {[&] { subnetIs("vlan11", "blue", "ns-b"); }, subnetName,
       "_intfDevName has a different value of vlan11 than the current value of vlan10"},
      {[&] { subnetIs("vlan10", "blue", "ns-b"); }, subnetName,
       "_vrfName has a different value of blue than the current value of red"},
      {[&] { subnetIs("vlan10", "red", "ns-b"); }, subnetName,
       "_netNs has a different value of ns-b than the current value of ns-red"},
  };
  for (const auto& [call, name, tail] : rows)
    EXPECT_EQ(nameInUse(call), "Reinstantiating the entity with name " + name +
                                   " where constructor parameter attribute " + tail +
                                   " not allowed");
  EXPECT_EQ(localVip(vips, vipKey), vip);
  EXPECT_EQ(vip->netNs(), NamespaceName("ns-red"));
  EXPECT_EQ(localVipSubnet(subnets, subnetKey), subnet);
  EXPECT_EQ(subnet->intfDevName(), "vlan10");
}

}  // namespace
}  // namespace Routing::Fhrp
