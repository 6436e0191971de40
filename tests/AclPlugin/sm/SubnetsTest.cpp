// Virtual-router subnets: one ARP rule per (interface, subnet), its source
// chosen among the subnet's virtual IPs, and the virtual MAC it rewrites to.
#include <gmock/gmock.h>

#include <tuple>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const char* const mac1 = "02:00:00:00:01:01";
const char* const mac2 = "02:1c:73:00:00:99";

// The level-4 lines about subnet records.
Lines subnetTraces(const TraceCapture& traces) {
  Lines out;
  for (const std::string& t : traces.at(4))
    if (t.find("LocalVipSubnetStatus") != std::string::npos) out.push_back(t);
  return out;
}

std::string joining(const std::string& ip) {
  return "Adding " + ip + " to 10.1.1.0/24 on interface Vlan10 in LocalVipSubnetStatus";
}

TEST_F(VipSmFixture, SubnetRuleFollowsItsMembers) {
  intfIs("Vlan10", "vlan10");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac1));
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  const IntfSubnetPair pair = intfSubnet("Vlan10", "10.1.1.0/24");
  TraceCapture traces;
  auto removeVip = [&](const std::string& ip) {
    fresh(traces);
    vip->virtualIpDel(vipKey("default", (ip + "/24").c_str()));
    tick();
  };

  // The first virtual IP of the pair makes the rule, with itself as source.
  vipIs("default", "10.1.1.1/24", "default")->intfIdSetIs(vlan10);
  tick();
  EXPECT_EQ(FakeSystem::commands(),
            concat(mangleLines("", true, "10.1.1.1", "vlan10"),
                   {arpLine("", true, "10.1.1.0/24", "vlan10", mac1, "10.1.1.1")}));
  Kiv::Ptr<LocalVipSubnetStatus> record = sm->localVipSubnet(pair);
  ASSERT_TRUE(record);
  EXPECT_EQ(std::tuple(record->intfDevName(), record->vrfName(), record->netNs()),
            std::tuple("vlan10", L3::VrfName("default"), Dravo::NamespaceName("default")));
  const std::string made = "Adding to LocalVipSubnetStatus with 10.1.1.0/24 on interface Vlan10";
  EXPECT_THAT(subnetTraces(traces), ElementsAre(made, joining("10.1.1.1")));
  // The rule runs before the record is made.
  EXPECT_LT(traceIndex(traces, 6, FakeSystem::commands()[2]), traceIndex(traces, 4, made));

  // Further virtual IPs of the pair only join it.
  fresh(traces);
  vipIs("default", "10.1.1.2/24", "default")->intfIdSetIs(vlan10);
  vipIs("default", "10.1.1.3/24", "default")->intfIdSetIs(vlan10);
  tick();
  EXPECT_THAT(commandsWith("arptables"), IsEmpty());
  EXPECT_THAT(subnetTraces(traces), UnorderedElementsAre(joining("10.1.1.2"), joining("10.1.1.3")));
  EXPECT_EQ(record->ipAddrsSize(), 3u);

  // A delete for an unknown pair is ignored.
  FakeSystem::reset();
  sm->doDeleteVirtualIpSubnet(Dravo::IpGenAddr("10.1.1.1"), intfSubnet("Vlan20", "10.1.1.0/24"));
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  // Removing the source: one delete, then one add with a remaining member.
  // The device was renamed meanwhile; removal works from the records.
  intfIs("Vlan10", "vlan10-renamed");
  removeVip("10.1.1.1");
  const std::string next = record->srcIp().stringValue().stdString();
  EXPECT_THAT(next, AnyOf("10.1.1.2", "10.1.1.3"));
  EXPECT_EQ(FakeSystem::commands(),
            concat(mangleLines("", false, "10.1.1.1", "vlan10"),
                   {arpLine("", false, "10.1.1.0/24", "vlan10", mac1, "10.1.1.1"),
                    arpLine("", true, "10.1.1.0/24", "vlan10", mac1, next)}));
  EXPECT_THAT(subnetTraces(traces),
              ElementsAre("Switching 10.1.1.1 to " + next +
                          " for 10.1.1.0/24 on Vlan10 in LocalVipSubnetStatus"));

  // Removing a member that is not the source leaves the rule alone.
  const std::string other = next == "10.1.1.2" ? "10.1.1.3" : "10.1.1.2";
  removeVip(other);
  EXPECT_EQ(FakeSystem::commands(), mangleLines("", false, other, "vlan10"));
  EXPECT_EQ(record->srcIp(), Dravo::IpGenAddr(next));
  EXPECT_EQ(record->ipAddrsSize(), 1u);

  // Removing the last member deletes the rule and the record.
  removeVip(next);
  EXPECT_EQ(FakeSystem::commands(),
            concat(mangleLines("", false, next, "vlan10"),
                   {arpLine("", false, "10.1.1.0/24", "vlan10", mac1, next)}));
  EXPECT_THAT(subnetTraces(traces),
              ElementsAre("No more IPs in the same subnet, so deleting 10.1.1.0/24 with "
                          "interface Vlan10 from LocalVipSubnetStatus"));
  EXPECT_FALSE(sm->localVipSubnet(pair));
}

TEST_F(VipSmFixture, NewVirtualMacIsTakenUpByTheNextAdd) {
  redOnVlan10();
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac1));
  vipIs("red", "10.1.1.1/24", "ns-red")->intfIdSetIs(vlan10);
  vip6Is("red", "2001:db8::1", "ns-red")->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  vipIs("red", "10.1.1.2/24", "ns-red")->intfIdSetIs(vlan10);
  tick();
  Kiv::Ptr<LocalVipSubnetStatus> record = sm->localVipSubnet(intfSubnet("Vlan10", "10.1.1.0/24"));
  ASSERT_TRUE(record);
  ASSERT_EQ(record->srcIp(), Dravo::IpGenAddr("10.1.1.1"));
  FakeSystem::reset();
  TraceCapture traces;

  // The change re-queues every pair, IPv6 ones too, and runs nothing by itself.
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac2));
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 3u);
  // Decide only 10.1.1.2's pair, so that the new rule's source can only be
  // the virtual IP being added, not the old source.
  sm->virtualIpBacklogCollectionDel(VirtualIpBacklogKey(vipKey("red", "10.1.1.1/24"), vlan10));
  sm->virtualIpBacklogCollectionDel(VirtualIpBacklogKey(vipKey("red", "2001:db8::1/128"), vlan10));
  tick();
  EXPECT_EQ(commandsWith("arptables"),
            (Lines{arpLine(inRed, false, "10.1.1.0/24", "vlan10", mac1, "10.1.1.1"),
                   arpLine(inRed, true, "10.1.1.0/24", "vlan10", mac2, "10.1.1.2")}));
  EXPECT_EQ(FakeSystem::commands().size(), 6u);  // and the pair's own rules, re-added
  EXPECT_NE(traceIndex(traces, 4, "Virtual mac changed for 10.1.1.0/24 on interface Vlan10"), -1);
  EXPECT_EQ(record->srcIp(), Dravo::IpGenAddr("10.1.1.2"));
  EXPECT_EQ(record->vmac(), Dravo::EthAddr(mac2));

  // With the MAC up to date, the other pair only re-joins.
  FakeSystem::reset();
  sm->doWriteToBacklog(vipKey("red", "10.1.1.1/24"), vlan10);
  tick();
  EXPECT_THAT(commandsWith("arptables"), IsEmpty());
  EXPECT_EQ(record->srcIp(), Dravo::IpGenAddr("10.1.1.2"));

  // The source leaves before any pair was decided under a newer MAC: the
  // rule that takes over carries that MAC, not the record's.
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac1));
  sm->virtualIpBacklogCollectionDelAll();
  FakeSystem::reset();
  vip->virtualIpDel(vipKey("red", "10.1.1.2/24"));
  tick();
  EXPECT_EQ(commandsWith("arptables"),
            (Lines{arpLine(inRed, false, "10.1.1.0/24", "vlan10", mac2, "10.1.1.2"),
                   arpLine(inRed, true, "10.1.1.0/24", "vlan10", mac1, "10.1.1.1")}));
}

TEST_F(VipSmFixture, SubnetMembershipFollowsTheInputEntryNotTheInterface) {
  intfIs("Vlan10", "vlan10");
  vrMac->lumoVirtualMacIs(Dravo::EthAddr(mac1));
  Kiv::Ptr<VirtualIpIntfStatus> a = vipIs("default", "10.1.1.1/24", "default");
  a->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();

  // The interface leaves an entry that still exists: the mangle rules go,
  // but the subnet keeps the virtual IP and its rule.
  a->intfIdSetDel(vlan10);
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines("", false, "10.1.1.1", "vlan10"));
  EXPECT_FALSE(sm->localVip(vrfIp("default", "10.1.1.1")));
  Kiv::Ptr<LocalVipSubnetStatus> kept = sm->localVipSubnet(intfSubnet("Vlan10", "10.1.1.0/24"));
  ASSERT_TRUE(kept);
  EXPECT_TRUE(kept->ipAddrs(Dravo::IpGenAddr("10.1.1.1")));
}

}  // namespace
}  // namespace Routing::Fhrp
