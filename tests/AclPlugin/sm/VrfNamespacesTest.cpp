#include <gmock/gmock.h>

#include <map>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::IsEmpty;

TEST_F(SmFixture, RemovedVrfForgetsOnlyItsOwnRecordsAndRunsNoCommand) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  // Enough records that deleting while walking crosses buckets.
  for (int i = 1; i <= 20; ++i) {
    std::string a = "10.0.0." + std::to_string(i);
    sm->localVipIs(vrfIp("red", a.c_str()), Dravo::NamespaceName("ns-red"))
        ->intfIdSetIs(Dravo::IntfId("Vlan10"), "vlan10");
    sm->localVipIs(vrfIp("blue", a.c_str()), Dravo::NamespaceName("ns-blue"));
  }
  sm->localVipSubnetIs(intfSubnet("Vlan10", "10.0.0.0/24"), "vlan10", L3::VrfName("red"),
                       Dravo::NamespaceName("ns-red"));
  sm->localVipSubnetIs(intfSubnet("Vlan20", "10.0.0.0/24"), "vlan20", L3::VrfName("blue"),
                       Dravo::NamespaceName("ns-blue"));
  FakeSystem::reset();
  TraceCapture traces("VirtualIpArpMangleSm/4,8");

  // A change of a VRF that still has an entry, even to state 2, changes nothing.
  vrfIs("red", Ip::VrfState::deleting, "ns-red");
  EXPECT_TRUE(sm->localVip(vrfIp("red", "10.0.0.1")));
  EXPECT_THAT(traces.at(4), IsEmpty());

  allVrf->vrfDel(L3::VrfName("red"));
  EXPECT_THAT(traces.at(4),
              ::testing::ElementsAre("Vrf red is being deleted, cleaning up local state."));
  EXPECT_EQ(traces.at(8), Lines(2,
                                "void Routing::Fhrp::VirtualIpArpTablesSm::"
                                "handleVrfStatus(L3::VrfName)"));
  auto count = [&] {
    std::map<std::string, int> n;
    for (auto it = sm->localVipIterator(); it; ++it)
      ++n[it.key().vrfName().stringValue().stdString()];
    return n;
  };
  EXPECT_EQ(count(), (std::map<std::string, int>{{"blue", 20}}));
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan10", "10.0.0.0/24")));
  EXPECT_TRUE(sm->localVipSubnet(intfSubnet("Vlan20", "10.0.0.0/24")));
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  // A replaced VRF collection deliberately triggers no clean-up.
  allVrf->vrfIs(std::vector<Ip::VrfStatusValue>{});
  EXPECT_EQ(count(), (std::map<std::string, int>{{"blue", 20}}));
}

TEST_F(SmFixture, NamespaceOfAVrfIsUsableUnlessMissingOrDeleting) {
  Kiv::Ptr<VirtualIpArpTablesSm> sm(
      new VirtualIpArpTablesSm(nullptr, nullptr, nullptr, nullptr, nullptr));
  // "default" needs no VRF status at all.
  EXPECT_TRUE(sm->doesNetNsExistsForVrf(L3::VrfName("default")));
  EXPECT_FALSE(sm->doesNetNsExistsForVrf(L3::VrfName("red")));

  sm->allVrfStatusLocalIs(allVrf);
  vrfIs("default", Ip::VrfState::deleting, "default");
  vrfIs("red", Ip::VrfState::inactive, "ns-red");
  vrfIs("blue", Ip::VrfState::deleting, "ns-blue");
  vrfIs("green", Ip::VrfState::active, "ns-green");
  const std::map<std::string, bool> usable = {
      {"default", true}, {"red", true}, {"blue", false}, {"green", true}, {"white", false}};
  TraceCapture traces("VirtualIpArpMangleSm/8");
  for (const auto& [vrf, expected] : usable)
    EXPECT_EQ(sm->doesNetNsExistsForVrf(L3::VrfName(vrf.c_str())), expected) << vrf;
  EXPECT_EQ(traces.at(8), Lines(usable.size(),
                                "bool Routing::Fhrp::VirtualIpArpTablesSm::"
                                "doesNetNsExistsForVrf(L3::VrfName)"));
}

}  // namespace
}  // namespace Routing::Fhrp
