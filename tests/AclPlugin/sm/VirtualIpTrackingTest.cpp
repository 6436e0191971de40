// Virtual IPs from the inputs to the host's mangle rules: what a change
// queues, what the next tick installs or drops, and what is recorded.
#include <gmock/gmock.h>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_F(VipSmFixture, InterfaceMembershipDecidesTheRulesAndTheRecord) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  intfIs("Vlan10", "vlan10");
  intfIs("Vlan20", "vlan20");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  Kiv::Ptr<VirtualIpIntfStatus> entry = vipIs("red", "10.0.0.1/32", "ns-red");
  TraceCapture traces;

  // Adding an interface only queues the pair; nothing runs inside the notification.
  entry->intfIdSetIs(vlan10);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  EXPECT_THAT(traces.at(3),
              ElementsAre("Writing to backlog: 10.0.0.1/32 vrf red on interface Vlan10"));
  ASSERT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  EXPECT_EQ(sm->virtualIpBacklogCollectionIterator().key(),
            VirtualIpBacklogKey(vipKey("red", "10.0.0.1/32"), vlan10));

  tick();
  EXPECT_THAT(FakeSystem::commands(),
              ElementsAre("ip netns exec ns-red iptables -t mangle -A PREROUTING -p icmp -d "
                          "10.0.0.1 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j ACCEPT",
                          "ip netns exec ns-red iptables -t mangle -A PREROUTING -p all -d "
                          "10.0.0.1 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 0u);
  Kiv::Ptr<LocalVipStatus> local = sm->localVip(vrfIp("red", "10.0.0.1"));
  ASSERT_TRUE(local);
  EXPECT_EQ(local->netNs(), Dravo::NamespaceName("ns-red"));
  EXPECT_EQ(local->intfIdSetSize(), 1u);
  EXPECT_EQ(local->intfIdSet(vlan10), "vlan10");
  EXPECT_THAT(traces.at(4),
              ElementsAre("Adding to LocalVipStatus with 10.0.0.1/32 on vrf red",
                          "Adding interface Vlan10 to LocalVipStatus with 10.0.0.1/32 on vrf red"));
  EXPECT_NE(
      traceIndex(traces, 3, "Virtual ip 10.0.0.1/32 on vrf red with interface Vlan10 changed"), -1);
  // The IPv4 worker records the interface after running its commands.
  EXPECT_GT(traceIndex(traces, 4,
                       "Adding interface Vlan10 to LocalVipStatus with 10.0.0.1/32 on vrf red"),
            traceIndex(traces, 6, FakeSystem::commands()[1]));

  // A second interface joins the same record.
  FakeSystem::reset();
  entry->intfIdSetIs(vlan20);
  tick();
  EXPECT_EQ(FakeSystem::commands(),
            mangleLines("ip netns exec ns-red ", true, "10.0.0.1", "vlan20"));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.0.0.1")), local);
  EXPECT_EQ(local->intfIdSet(vlan20), "vlan20");

  // A value on the interface's entry makes the pair unwanted: its rules go,
  // the record stays for the other interface.
  FakeSystem::reset();
  traces.clear();
  entry->intfIdSetIs(vlan10, "standby");
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  tick();
  EXPECT_EQ(FakeSystem::commands(),
            mangleLines("ip netns exec ns-red ", false, "10.0.0.1", "vlan10"));
  EXPECT_THAT(traces.at(4), ElementsAre("Deleting interface Vlan10 from LocalVipStatus with "
                                        "10.0.0.1 on vrf red"));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.0.0.1")), local);
  EXPECT_EQ(local->intfIdSetSize(), 1u);
  EXPECT_EQ(local->intfIdSet(vlan10), "");

  // The last interface leaves after the virtual IP moved to another
  // namespace: the rules are dropped where they were installed, and the
  // empty record is deleted.
  FakeSystem::reset();
  traces.clear();
  entry->netNsIs(Dravo::NamespaceName("ns-blue"));
  entry->intfIdSetDel(vlan20);
  tick();
  EXPECT_EQ(FakeSystem::commands(),
            mangleLines("ip netns exec ns-red ", false, "10.0.0.1", "vlan20"));
  EXPECT_THAT(traces.at(4),
              ElementsAre("Deleting interface Vlan20 from LocalVipStatus with 10.0.0.1 on vrf red",
                          "Deleting from LocalVipStatus with 10.0.0.1 on vrf red"));
  EXPECT_FALSE(sm->localVip(vrfIp("red", "10.0.0.1")));
}

TEST_F(VipSmFixture, AddWorkerSkipsRecordedAndUnknownInterfaces) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  intfIs("Vlan10", "vlan10");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
  Kiv::Ptr<VirtualIpIntfStatus> entry = vipIs("red", "10.0.0.1/24", "ns-red");
  entry->intfIdSetIs(vlan10);
  entry->intfIdSetIs(Dravo::IntfId("Vlan99"));  // no interface status
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  FakeSystem::reset();
  TraceCapture traces;
  tick();

  // Vlan10: mangle rules, then the subnet's ARP rule. Vlan99: nothing.
  EXPECT_EQ(FakeSystem::commands(),
            concat(mangleLines("ip netns exec ns-red ", true, "10.0.0.1", "vlan10"),
                   {"ip netns exec ns-red arptables -A OUT -d 10.0.0.0/24 -o vlan10 -a 6 --arpop "
                    "Request -j mangle --mangle-hw-s 02:1c:73:00:00:99 --mangle-ip-s 10.0.0.1"}));
  // Once from the interface worker, once from the subnet step.
  EXPECT_THAT(traces.at(7), ElementsAre("IntfStatus Vlan99 does not exist!",
                                        "IntfStatus Vlan99 does not exist!"));
  Kiv::Ptr<LocalVipStatus> local = sm->localVip(vrfIp("red", "10.0.0.1"));
  ASSERT_TRUE(local);
  EXPECT_EQ(local->intfIdSetSize(), 1u);
  EXPECT_EQ(local->intfIdSet(vlan10), "vlan10");
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan99", "10.0.0.0/24")));
  EXPECT_TRUE(sm->localVipSubnet(intfSubnet("Vlan10", "10.0.0.0/24")));

  // Called on an interface already recorded, the worker does nothing at all.
  FakeSystem::reset();
  traces.clear();
  sm->doAddVirtualIpForIntfId(vipKey("red", "10.0.0.1/24"), vlan10);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  for (const TraceLine& l : traces.lines()) EXPECT_EQ(l.level, 8u) << l.text;
  EXPECT_EQ(local->intfIdSet(vlan10), "vlan10");

  sm->doAddVirtualIpForIntfId(vipKey("red", "10.0.0.1/24"), Dravo::IntfId("Vlan99"));
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  EXPECT_THAT(traces.at(7), ElementsAre("IntfStatus Vlan99 does not exist!"));
  EXPECT_EQ(local->intfIdSetSize(), 1u);
}

TEST_F(VipSmFixture, Ipv6VirtualIpHasItsOwnRecordAndNoSubnet) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  intfIs("Vlan10", "vlan10");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
  vipIs("red", "10.0.0.1/24", "ns-red")->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  Kiv::Ptr<VirtualIp6IntfStatus> entry = vip6Is("red", "2001:db8::1", "ns-red");

  // The failing ip6tables commands change nothing in what is recorded.
  FakeSystem::failWhen("ip6tables");
  TraceCapture traces;
  entry->intfIdSetIs(vlan10);
  ASSERT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  EXPECT_EQ(sm->virtualIpBacklogCollectionIterator().key(),
            VirtualIpBacklogKey(
                VrfIpWithMaskPair(L3::VrfName("red"),
                                  Dravo::IpGenAddrWithMask(Dravo::IpGenAddr("2001:db8::1"))),
                vlan10));
  tick();
  EXPECT_THAT(FakeSystem::commands(),
              ElementsAre("ip netns exec ns-red ip6tables -t mangle -A PREROUTING -p ipv6-icmp -d "
                          "2001:db8::1 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j ACCEPT",
                          "ip netns exec ns-red ip6tables -t mangle -A PREROUTING -p all -d "
                          "2001:db8::1 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP"));
  EXPECT_THAT(traces.at(4),
              ElementsAre("Adding to LocalVipStatus with 2001:db8::1 on vrf red",
                          "Adding interface Vlan10 to LocalVipStatus with 2001:db8::1 on vrf red"));
  // The IPv6 worker traces before its commands run.
  const long adding = traceIndex(
      traces, 4, "Adding interface Vlan10 to LocalVipStatus with 2001:db8::1 on vrf red");
  EXPECT_NE(adding, -1);
  EXPECT_LT(adding, traceIndex(traces, 6, FakeSystem::commands()[0]));
  EXPECT_THAT(traces.at(7), IsEmpty());  // no subnet step for IPv6

  Kiv::Ptr<LocalVipStatus> local6 = sm->localVip(vrfIp("red", "2001:db8::1"));
  Kiv::Ptr<LocalVipStatus> local4 = sm->localVip(vrfIp("red", "10.0.0.1"));
  ASSERT_TRUE(local6);
  ASSERT_TRUE(local4);
  EXPECT_NE(local6, local4);
  EXPECT_EQ(local6->intfIdSet(vlan10), "vlan10");
  EXPECT_EQ(local4->intfIdSet(vlan10), "vlan10");
  std::size_t subnets = 0;
  for (auto it = sm->localVipSubnetIterator(); it; ++it) ++subnets;
  EXPECT_EQ(subnets, 1u);  // the IPv4 virtual IP's only

  // Removing the IPv6 virtual IP queues its recorded interface only, even
  // though a subnet record holds the same address.
  sm->localVipSubnetIs(intfSubnet("Vlan20", "2001:db8::/64"), "vlan20", L3::VrfName("red"),
                       Dravo::NamespaceName("ns-red"))
      ->ipAddrsIs(Dravo::IpGenAddr("2001:db8::1"), true);
  FakeSystem::reset();
  vip6->virtualIpDel(vrfIp("red", "2001:db8::1"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  tick();
  EXPECT_EQ(FakeSystem::commands(),
            mangleLines("ip netns exec ns-red ", false, "2001:db8::1", "vlan10"));
  EXPECT_FALSE(sm->localVip(vrfIp("red", "2001:db8::1")));
  EXPECT_EQ(sm->localVip(vrfIp("red", "10.0.0.1")), local4);
  EXPECT_EQ(local4->intfIdSetSize(), 1u);
}

TEST_F(VipSmFixture, RemovedVirtualIpQueuesItsInterfacesAndSubnets) {
  const std::string mac = "02:1c:73:00:00:99";
  vrfIs("red", Ip::VrfState::active, "ns-red");
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  intfIs("Vlan10", "vlan10");
  intfIs("Vlan20", "vlan20");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac));
  Kiv::Ptr<VirtualIpIntfStatus> entry = vipIs("red", "10.1.1.1/24", "ns-red");
  entry->intfIdSetIs(vlan10);
  entry->intfIdSetIs(vlan20);
  entry->intfIdSetIs(Dravo::IntfId("Vlan99"));  // never installed: no interface status
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  ASSERT_EQ(sm->localVip(vrfIp("red", "10.1.1.1"))->intfIdSetSize(), 2u);
  const Dravo::IpGenAddr address("10.1.1.1");
  // The same address in a subnet on an interface the virtual IP is not
  // recorded on, and in another VRF's subnet.
  Kiv::Ptr<LocalVipSubnetStatus> vlan30 =
      sm->localVipSubnetIs(intfSubnet("Vlan30", "10.1.1.0/24"), "vlan30", L3::VrfName("red"),
                           Dravo::NamespaceName("ns-red"));
  vlan30->ipAddrsIs(address, true);
  vlan30->srcIpIs(address);
  vlan30->vmacIs(Dravo::EthAddr(mac));
  Kiv::Ptr<LocalVipSubnetStatus> blue =
      sm->localVipSubnetIs(intfSubnet("Vlan40", "10.1.1.0/24"), "vlan40", L3::VrfName("blue"),
                           Dravo::NamespaceName("ns-blue"));
  blue->ipAddrsIs(address, true);
  blue->srcIpIs(address);

  TraceCapture traces("VirtualIpArpMangleSm/3");
  vip->virtualIpDel(vipKey("red", "10.1.1.1/24"));
  const std::string write = "Writing to backlog: 10.1.1.1/24 vrf red on interface ";
  EXPECT_THAT(traces.at(3),
              UnorderedElementsAre(write + "Vlan10", write + "Vlan20", write + "Vlan10",
                                   write + "Vlan20", write + "Vlan30"));
  std::vector<Dravo::IntfId> queued;
  for (auto it = sm->virtualIpBacklogCollectionIterator(); it; ++it) {
    EXPECT_EQ(it.key().vrfIpWithMask(), vipKey("red", "10.1.1.1/24"));
    queued.push_back(it.key().intfId());
  }
  EXPECT_THAT(queued, UnorderedElementsAre(vlan10, vlan20, Dravo::IntfId("Vlan30")));
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  tick();
  const std::string ns = "ip netns exec ns-red ";
  EXPECT_EQ(commandsWith(" vlan10"),
            concat(mangleLines(ns, false, "10.1.1.1", "vlan10"),
                   {arpLine(ns, false, "10.1.1.0/24", "vlan10", mac, "10.1.1.1")}));
  EXPECT_EQ(commandsWith(" vlan20"),
            concat(mangleLines(ns, false, "10.1.1.1", "vlan20"),
                   {arpLine(ns, false, "10.1.1.0/24", "vlan20", mac, "10.1.1.1")}));
  EXPECT_THAT(commandsWith(" vlan30"),
              ElementsAre(arpLine(ns, false, "10.1.1.0/24", "vlan30", mac, "10.1.1.1")));
  EXPECT_EQ(FakeSystem::commands().size(), 7u);
  EXPECT_FALSE(sm->localVip(vrfIp("red", "10.1.1.1")));
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan10", "10.1.1.0/24")));
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan20", "10.1.1.0/24")));
  EXPECT_FALSE(sm->localVipSubnet(intfSubnet("Vlan30", "10.1.1.0/24")));
  EXPECT_EQ(sm->localVipSubnet(intfSubnet("Vlan40", "10.1.1.0/24")), blue);
  EXPECT_TRUE(blue->ipAddrs(address));
}

}  // namespace
}  // namespace Routing::Fhrp
