// Virtual IPs from the inputs to the host's mangle rules: what a change
// queues, what the next tick installs or drops, and what is recorded.
#include <gmock/gmock.h>

#include <map>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_F(VipSmFixture, InterfaceMembershipDecidesTheRulesAndTheRecord) {
  redOnVlan10();
  intfIs("Vlan20", "vlan20");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  Kiv::Ptr<VirtualIpIntfStatus> entry = vipIs("red", "10.0.0.1/32", "ns-red");
  const VrfIpWithMaskPair key = vipKey("red", "10.0.0.1/32");
  TraceCapture traces;

  // Added, removed and added again: each change only queues the pair, and
  // the burst is one entry, decided once at the tick from the input as it is.
  entry->intfIdSetIs(vlan10);
  entry->intfIdSetDel(vlan10);
  entry->intfIdSetIs(vlan10);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  EXPECT_EQ(traces.at(3), Lines(3, "Writing to backlog: 10.0.0.1/32 vrf red on interface Vlan10"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  EXPECT_EQ(sm->virtualIpBacklogCollectionIterator().key(), VirtualIpBacklogKey(key, vlan10));
  traces.clear();
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, true, "10.0.0.1", "vlan10"));
  EXPECT_THAT(traces.at(3),
              ElementsAre("Virtual ip 10.0.0.1/32 on vrf red with interface Vlan10 changed"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 0u);
  Kiv::Ptr<LocalVipStatus> local = sm->localVip(vrfIp("red", "10.0.0.1"));
  ASSERT_TRUE(local);
  EXPECT_EQ(local->netNs(), Dravo::NamespaceName("ns-red"));
  const std::string made = "Adding to LocalVipStatus with 10.0.0.1/32 on vrf red";
  const std::string adding =
      "Adding interface Vlan10 to LocalVipStatus with 10.0.0.1/32 on vrf red";
  EXPECT_THAT(traces.at(4), ElementsAre(made, adding));
  // The IPv4 worker records the interface after running its commands; steps
  // shared between handlers are traced under the handler they run for.
  EXPECT_GT(traceIndex(traces, 4, adding), traceIndex(traces, 6, FakeSystem::commands()[1]));
  EXPECT_EQ(traces.lines()[traceIndex(traces, 4, adding)].function, "doAddVirtualIpForIntfId");
  EXPECT_EQ(traces.lines()[traceIndex(traces, 4, made)].function, "doHandleBacklogIp");

  // Written three times while installed: one decision, which removes the
  // rules and writes them again.
  fresh(traces);
  for (int i = 0; i < 3; ++i) sm->doWriteToBacklog(key, vlan10);
  tick();
  EXPECT_EQ(FakeSystem::commands(), concat(mangleLines(inRed, false, "10.0.0.1", "vlan10"),
                                           mangleLines(inRed, true, "10.0.0.1", "vlan10")));
  EXPECT_THAT(traces.at(4),
              ElementsAre("LocalVipStatus for 10.0.0.1 with vrf red on interface Vlan10 exists, "
                          "cleaning up first",
                          "Deleting interface Vlan10 from LocalVipStatus with 10.0.0.1 on vrf red",
                          adding));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.0.0.1")), local);

  // Called directly on an interface already recorded, the add worker runs nothing.
  FakeSystem::reset();
  sm->doAddVirtualIpForIntfId(key, vlan10);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  // A second interface joins the same record, by a whole-set replacement
  // that queues the members of the new set.
  entry->intfIdSetIs(std::map<Dravo::IntfId, Kiv::String8>{{vlan20, ""}});
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, true, "10.0.0.1", "vlan20"));
  EXPECT_EQ(local->intfIdSet(vlan20), "vlan20");

  // A value on the interface's entry makes the pair unwanted: its rules go,
  // the record stays for the other interface.
  FakeSystem::reset();
  entry->intfIdSetIs(vlan10, "standby");
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, false, "10.0.0.1", "vlan10"));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.0.0.1")), local);
  EXPECT_EQ(local->intfIdSetSize(), 1u);

  // The last interface leaves after the virtual IP moved to another
  // namespace: the rules are dropped where they were installed, and the
  // empty record is deleted.
  fresh(traces);
  entry->netNsIs(Dravo::NamespaceName("ns-blue"));
  entry->intfIdSetDel(vlan20);
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, false, "10.0.0.1", "vlan20"));
  EXPECT_THAT(traces.at(4),
              ElementsAre("Deleting interface Vlan20 from LocalVipStatus with 10.0.0.1 on vrf red",
                          "Deleting from LocalVipStatus with 10.0.0.1 on vrf red"));
  EXPECT_FALSE(sm->localVip(vrfIp("red", "10.0.0.1")));
}

TEST_F(VipSmFixture, Ipv6VirtualIpHasItsOwnRecordAndNoSubnet) {
  redOnVlan10();
  vrMac->lumoVirtualMacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
  vipIs("red", "10.0.0.1/24", "ns-red")->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();

  // The failing ip6tables commands change nothing in what is recorded.
  FakeSystem::failWhen("ip6tables");
  TraceCapture traces;
  vip6Is("red", "2001:db8::1", "ns-red")->intfIdSetIs(vlan10);
  EXPECT_EQ(sm->virtualIpBacklogCollectionIterator().key().vrfIpWithMask(),
            vipKey("red", "2001:db8::1/128"));
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, true, "2001:db8::1", "vlan10"));
  const std::string adding =
      "Adding interface Vlan10 to LocalVipStatus with 2001:db8::1 on vrf red";
  EXPECT_THAT(traces.at(4),
              ElementsAre("Adding to LocalVipStatus with 2001:db8::1 on vrf red", adding));
  // The IPv6 worker traces before its commands run, and has no subnet step.
  EXPECT_LT(traceIndex(traces, 4, adding), traceIndex(traces, 6, FakeSystem::commands()[0]));
  EXPECT_THAT(traces.at(7), IsEmpty());

  Kiv::Ptr<LocalVipStatus> local6 = sm->localVip(vrfIp("red", "2001:db8::1"));
  Kiv::Ptr<LocalVipStatus> local4 = sm->localVip(vrfIp("red", "10.0.0.1"));
  ASSERT_TRUE(local6 && local4);
  EXPECT_NE(local6, local4);
  EXPECT_EQ(local6->intfIdSet(vlan10), "vlan10");
  EXPECT_EQ(sm->localVipSubnetIterator().key(), intfSubnet("Vlan10", "10.0.0.0/24"));
  EXPECT_FALSE(++sm->localVipSubnetIterator()) << "the IPv4 virtual IP's subnet only";

  // Removing the IPv6 virtual IP queues its recorded interface only, even
  // though a subnet record holds the same address.
  sm->localVipSubnetIs(intfSubnet("Vlan20", "2001:db8::/64"), "vlan20", L3::VrfName("red"),
                       Dravo::NamespaceName("ns-red"))
      ->ipAddrsIs(Dravo::IpGenAddr("2001:db8::1"), true);
  FakeSystem::reset();
  vip6->virtualIpDel(vrfIp("red", "2001:db8::1"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, false, "2001:db8::1", "vlan10"));
  EXPECT_FALSE(sm->localVip(vrfIp("red", "2001:db8::1")));
  EXPECT_EQ(local4->intfIdSetSize(), 1u);
}

TEST_F(VipSmFixture, RemovedVirtualIpQueuesItsInterfacesAndSubnets) {
  const std::string mac = "02:1c:73:00:00:99";
  redOnVlan10();
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  intfIs("Vlan20", "vlan20");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac));
  Kiv::Ptr<VirtualIpIntfStatus> entry = vipIs("red", "10.1.1.1/24", "ns-red");
  for (const char* intf : {"Vlan10", "Vlan20", "Vlan99"}) entry->intfIdSetIs(Dravo::IntfId(intf));
  TraceCapture traces("VirtualIpArpMangleSm/3,7");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  // Vlan99 has no interface status: nothing installed or recorded for it, as
  // told once by the interface worker and once by the subnet step.
  EXPECT_EQ(traces.at(7), Lines(2, "IntfStatus Vlan99 does not exist!"));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.1.1.1"))->intfIdSetSize(), 2u);
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan99", "10.1.1.0/24")));
  // The same address in a subnet on an interface the virtual IP is not
  // recorded on, and in another VRF's subnet.
  const Dravo::IpGenAddr address("10.1.1.1");
  auto subnetIs = [&](const char* intf, const char* dev, const char* vrf, const char* ns) {
    Kiv::Ptr<LocalVipSubnetStatus> s = sm->localVipSubnetIs(
        intfSubnet(intf, "10.1.1.0/24"), dev, L3::VrfName(vrf), Dravo::NamespaceName(ns));
    s->ipAddrsIs(address, true);
    s->srcIpIs(address);
    s->vmacIs(Dravo::EthAddr(mac));
    return s;
  };
  subnetIs("Vlan30", "vlan30", "red", "ns-red");
  Kiv::Ptr<LocalVipSubnetStatus> blue = subnetIs("Vlan40", "vlan40", "blue", "ns-blue");

  traces.clear();
  vip->virtualIpDel(vipKey("red", "10.1.1.1/24"));
  // The recorded interfaces, then each subnet holding the address.
  const std::string write = "Writing to backlog: 10.1.1.1/24 vrf red on interface Vlan";
  EXPECT_THAT(traces.at(3), UnorderedElementsAre(write + "10", write + "20", write + "10",
                                                 write + "20", write + "30"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 3u);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  tick();
  for (std::string dev : {"vlan10", "vlan20", "vlan30"}) {
    Lines expected = {arpLine(inRed, false, "10.1.1.0/24", dev, mac, "10.1.1.1")};
    if (dev != "vlan30") expected = concat(mangleLines(inRed, false, "10.1.1.1", dev), expected);
    EXPECT_EQ(commandsWith(" " + dev), expected);
  }
  EXPECT_EQ(FakeSystem::commands().size(), 7u);
  EXPECT_FALSE(sm->localVip(vrfIp("red", "10.1.1.1")));
  for (const char* intf : {"Vlan10", "Vlan20", "Vlan30"})
    EXPECT_FALSE(sm->localVipSubnet(intfSubnet(intf, "10.1.1.0/24"))) << intf;
  EXPECT_TRUE(blue->ipAddrs(address)) << "another VRF's subnet is not touched";
  EXPECT_EQ(sm->localVipSubnet(intfSubnet("Vlan40", "10.1.1.0/24")), blue);
}

}  // namespace
}  // namespace Routing::Fhrp
