// The local records notify only on a real change, each under its own
// attribute id (the entity's delivery rules are checked in the platform).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AclPlugin/records/LocalVipStatus.h"
#include "AclPlugin/records/LocalVipSubnetStatus.h"

namespace Routing::Fhrp {
namespace {

using Dravo::IntfId;
using Dravo::IpGenAddr;
using Events = std::vector<std::string>;

struct VipWatcher : LocalVipStatus::NotifieeConst {
  void onIntfIdSet(IntfId id) override { events.push_back(id.stringValue().stdString()); }
  Events events;
};

// Throws on every callback; records the attribute ids its handler is given.
struct SubnetWatcher : LocalVipSubnetStatus::NotifieeConst {
  void onIpAddrs(const IpGenAddr& a) override { record(a.stringValue().stdString()); }
  void onSrcIp() override { record("srcIp"); }
  void onVmac() override { record("vmac"); }
  void record(const std::string& e) {
    events.push_back(e);
    throw std::runtime_error("boom");
  }
  void handleNotificationException(Kiv::AttrId attr, std::exception_ptr) override {
    failures.push_back(attr);
  }
  Events events;
  std::vector<Kiv::AttrId> failures;
};

TEST(LocalRecords, NotifyOnlyOnRealChange) {
  Kiv::Ptr<LocalVipStatus> vip = new LocalVipStatus(
      VrfIpPair(L3::VrfName("red"), IpGenAddr("10.0.0.1")), Dravo::NamespaceName("ns-red"));
  VipWatcher w;
  w.notifierIs(vip);
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");  // unchanged
  vip->intfIdSetIs(IntfId("Eth1"), "et1");   // another device name replaces
  vip->intfIdSetDel(IntfId("Eth9"));         // absent
  vip->intfIdSetDel(IntfId("Eth1"));
  EXPECT_EQ(w.events, (Events{"Eth1", "Eth1", "Eth1"}));

  Kiv::Ptr<LocalVipSubnetStatus> s =
      new LocalVipSubnetStatus(IntfSubnetPair(IntfId("Vlan10"), Dravo::IpGenPrefix("10.0.0.0/24")),
                               "vlan10", L3::VrfName("red"), Dravo::NamespaceName("ns-red"));
  SubnetWatcher sw;
  sw.notifierIs(s);
  s->srcIpIs(IpGenAddr());  // the defaults: unset and all-zero
  s->vmacIs(Dravo::EthAddr("00:00:00:00:00:00"));
  for (int i = 0; i < 2; ++i) {
    s->vmacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
    s->srcIpIs(IpGenAddr("10.0.0.1"));
    s->ipAddrsIs(IpGenAddr("10.0.0.1"), true);
  }
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("a00:1::"))) << "same bytes, other family: another key";
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), false);
  EXPECT_FALSE(s->ipAddrsDel(IpGenAddr("10.0.0.3")));
  EXPECT_FALSE(s->ipAddrsDel(IpGenAddr("10.0.0.1")));  // returns the removed flag
  EXPECT_EQ(sw.events, (Events{"vmac", "srcIp", "10.0.0.1", "10.0.0.1", "10.0.0.1"}));
  EXPECT_EQ(sw.failures, (std::vector<Kiv::AttrId>{262, 263, 264, 264, 264}));
}

}  // namespace
}  // namespace Routing::Fhrp
