// The local records: notification only on a real change, and a notifiee's
// exception routed to its own handler with the attribute id.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "AclPlugin/records/LocalVipStatus.h"
#include "AclPlugin/records/LocalVipSubnetStatus.h"

namespace Routing::Fhrp {
namespace {

using Dravo::IntfId;
using Dravo::IpGenAddr;
using Events = std::vector<std::string>;

// Records each callback as text; throws after recording when `throwing`.
template <class Record>
struct Watcher : Record::NotifieeConst {
  void record(const std::string& e) {
    events.push_back(e);
    if (throwing) throw std::runtime_error("boom");
  }
  void handleNotificationException(Kiv::AttrId attr, std::exception_ptr) override {
    failures.push_back(attr);
  }
  Events sorted() const {
    Events s = events;
    std::sort(s.begin(), s.end());
    return s;
  }
  bool throwing = false;
  Events events;
  std::vector<Kiv::AttrId> failures;
};

struct VipWatcher : Watcher<LocalVipStatus> {
  void onIntfIdSet(IntfId id) override { record(id.stringValue().stdString()); }
};

struct SubnetWatcher : Watcher<LocalVipSubnetStatus> {
  void onIpAddrs(const IpGenAddr& a) override { record(a.stringValue().stdString()); }
  void onSrcIp() override { record("srcIp"); }
  void onVmac() override { record("vmac"); }
};

TEST(LocalVipStatus, IntfIdSetNotifiesOnlyOnRealChange) {
  Kiv::Ptr<LocalVipStatus> vip = new LocalVipStatus(
      VrfIpPair(L3::VrfName("red"), IpGenAddr("10.0.0.1")), Dravo::NamespaceName("ns-red"));
  const char* names[] = {"unknown", "vrfIp", "netNs", "intfIdSet", "unknown"};
  for (Kiv::AttrId id = 257; id <= 261; ++id) EXPECT_EQ(vip->attributeString(id), names[id - 257]);

  VipWatcher thrower, w;
  thrower.throwing = true;
  thrower.notifierIs(vip);
  w.notifierIs(vip);
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");  // unchanged
  vip->intfIdSetIs(IntfId("Eth1"), "et1");   // another device name replaces
  vip->intfIdSetIs(IntfId("Eth2"), "");      // the empty device name is legal
  EXPECT_EQ(w.events, (Events{"Eth1", "Eth1", "Eth2"})) << "delivery goes on past a thrower";
  EXPECT_EQ(thrower.failures, (std::vector<Kiv::AttrId>{260, 260, 260}));
  EXPECT_TRUE(w.failures.empty());
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth1")), "et1");
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth9")), "");

  thrower.notifierIs(nullptr);
  w.events.clear();
  vip->intfIdSetDel(IntfId("Eth9"));  // absent: nobody hears of it
  vip->intfIdSetDel(IntfId("Eth2"));
  EXPECT_EQ(w.events, Events{"Eth2"});
  // Deleting through the iterator returns the device name; at the end, nothing.
  LocalVipStatus::IntfIdSetIterator it = vip->intfIdSetIterator();
  EXPECT_EQ(vip->intfIdSetDel(it), "et1");
  EXPECT_FALSE(++it);
  EXPECT_EQ(vip->intfIdSetDel(it), "");
  EXPECT_EQ(w.events, (Events{"Eth2", "Eth1"}));

  // DelAll: one notification per removed key, each key once.
  for (const char* i : {"Eth3", "Eth4", "Eth5"}) vip->intfIdSetIs(IntfId(i), i);
  w.events.clear();
  vip->intfIdSetDelAll();
  vip->intfIdSetDelAll();
  EXPECT_EQ(w.sorted(), (Events{"Eth3", "Eth4", "Eth5"}));
  EXPECT_EQ(vip->intfIdSetSize(), 0u);
}

TEST(LocalVipSubnetStatus, NotifiesOnlyOnRealChange) {
  Kiv::Ptr<LocalVipSubnetStatus> s =
      new LocalVipSubnetStatus(IntfSubnetPair(IntfId("Vlan10"), Dravo::IpGenPrefix("10.0.0.0/24")),
                               "vlan10", L3::VrfName("red"), Dravo::NamespaceName("ns-red"));
  const char* names[] = {"unknown", "intfSubnet", "intfDevName", "vrfName", "netNs",
                         "vmac",    "srcIp",      "ipAddrs",     "unknown"};
  for (Kiv::AttrId id = 257; id <= 265; ++id) EXPECT_EQ(s->attributeString(id), names[id - 257]);

  SubnetWatcher thrower, w;
  thrower.throwing = true;
  thrower.notifierIs(s);
  w.notifierIs(s);
  s->srcIpIs(IpGenAddr());  // the defaults: unset and all-zero
  s->vmacIs(Dravo::EthAddr("00:00:00:00:00:00"));
  EXPECT_TRUE(w.events.empty());
  for (int i = 0; i < 2; ++i) {
    s->vmacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
    s->srcIpIs(IpGenAddr("10.0.0.1"));
    s->ipAddrsIs(IpGenAddr("10.0.0.1"), true);
  }
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), false);
  s->ipAddrsIs(IpGenAddr("10.0.0.2"), true);
  EXPECT_EQ(w.events, (Events{"vmac", "srcIp", "10.0.0.1", "10.0.0.1", "10.0.0.2"}));
  EXPECT_EQ(thrower.failures, (std::vector<Kiv::AttrId>{262, 263, 264, 264, 264}));
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("10.0.0.1")));
  EXPECT_TRUE(s->ipAddrs(IpGenAddr("10.0.0.2")));
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("a00:2::"))) << "same bytes, other family: another key";

  thrower.notifierIs(nullptr);
  w.events.clear();
  EXPECT_FALSE(s->ipAddrsDel(IpGenAddr("10.0.0.3")));  // absent: false, silent
  EXPECT_TRUE(s->ipAddrsDel(IpGenAddr("10.0.0.2")));   // returns the removed flag
  LocalVipSubnetStatus::IpAddrsIterator it = s->ipAddrsIterator();
  EXPECT_FALSE(s->ipAddrsDel(it));  // 10.0.0.1 carried false
  EXPECT_EQ(w.events, (Events{"10.0.0.2", "10.0.0.1"}));

  for (const char* a : {"10.0.0.4", "10.0.0.5"}) s->ipAddrsIs(IpGenAddr(a), true);
  w.events.clear();
  s->ipAddrsDelAll();
  EXPECT_EQ(w.sorted(), (Events{"10.0.0.4", "10.0.0.5"}));
  EXPECT_EQ(s->ipAddrsSize(), 0u);
}

}  // namespace
}  // namespace Routing::Fhrp
