// The local records: notification only on a real change, exception routing
// to the notifiee's handler with the attribute id, defaults and lookups.
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

// Records each callback as text; throws from the callback naming `throwOn`.
struct VipWatcher : LocalVipStatus::NotifieeConst {
  void onIntfIdSet(IntfId id) override {
    events.push_back(id.stringValue().stdString());
    if (id.stringValue() == throwOn) throw std::runtime_error("boom");
  }
  void handleNotificationException(Kiv::AttrId attr, std::exception_ptr) override {
    failures.push_back(attr);
  }
  std::string throwOn = "-";
  std::vector<std::string> events;
  std::vector<Kiv::AttrId> failures;
};

struct SubnetWatcher : LocalVipSubnetStatus::NotifieeConst {
  void onIpAddrs(const IpGenAddr& a) override { record("ipAddrs " + a.stringValue().stdString()); }
  void onSrcIp() override { record("srcIp"); }
  void onVmac() override { record("vmac"); }
  void record(const std::string& e) {
    events.push_back(e);
    if (throwing) throw std::runtime_error("boom");
  }
  void handleNotificationException(Kiv::AttrId attr, std::exception_ptr) override {
    failures.push_back(attr);
  }
  bool throwing = false;
  std::vector<std::string> events;
  std::vector<Kiv::AttrId> failures;
};

Kiv::Ptr<LocalVipStatus> makeVip() {
  return new LocalVipStatus(VrfIpPair(L3::VrfName("red"), IpGenAddr("10.0.0.1")),
                            Dravo::NamespaceName("ns-red"));
}

Kiv::Ptr<LocalVipSubnetStatus> makeSubnet() {
  return new LocalVipSubnetStatus(
      IntfSubnetPair(IntfId("Vlan10"), Dravo::IpGenPrefix("10.0.0.0/24")), "vlan10",
      L3::VrfName("red"), Dravo::NamespaceName("ns-red"));
}

TEST(LocalVipStatus, IntfIdSetNotifiesOnlyOnRealChange) {
  Kiv::Ptr<LocalVipStatus> vip = makeVip();
  EXPECT_EQ(vip->references(), 1u);
  EXPECT_EQ(vip->name(), "");
  EXPECT_STREQ(vip->fwkTypeName(), "Routing::Fhrp::LocalVipStatus");
  EXPECT_EQ(vip->vrfIp(), VrfIpPair(L3::VrfName("red"), IpGenAddr("10.0.0.1")));
  EXPECT_EQ(vip->netNs(), Dravo::NamespaceName("ns-red"));
  EXPECT_EQ(vip->attributeString(258), "vrfIp");
  EXPECT_EQ(vip->attributeString(259), "netNs");
  EXPECT_EQ(vip->attributeString(260), "intfIdSet");
  EXPECT_EQ(vip->attributeString(257), "unknown");
  EXPECT_EQ(vip->attributeString(261), "unknown");

  VipWatcher w;
  w.notifierIs(vip);
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");  // unchanged
  EXPECT_EQ(w.events, std::vector<std::string>{"Eth1"});
  vip->intfIdSetIs(IntfId("Eth1"), "et1");  // another device name replaces
  vip->intfIdSetIs(IntfId("Eth2"), "");     // the empty device name is legal
  EXPECT_EQ(w.events, (std::vector<std::string>{"Eth1", "Eth1", "Eth2"}));
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth1")), "et1");
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth9")), "");
  EXPECT_EQ(vip->intfIdSetSize(), 2u);

  w.events.clear();
  vip->intfIdSetDel(IntfId("Eth9"));  // absent: nobody hears of it
  EXPECT_TRUE(w.events.empty());
  vip->intfIdSetDel(IntfId("Eth2"));
  EXPECT_EQ(w.events, std::vector<std::string>{"Eth2"});
  EXPECT_EQ(vip->intfIdSetSize(), 1u);

  // Deleting through the iterator returns the device name; at the end, nothing.
  w.events.clear();
  LocalVipStatus::IntfIdSetIterator it = vip->intfIdSetIterator();
  EXPECT_EQ(vip->intfIdSetDel(it), "et1");
  ++it;
  EXPECT_FALSE(it);
  EXPECT_EQ(vip->intfIdSetDel(it), "");
  EXPECT_EQ(w.events, std::vector<std::string>{"Eth1"});

  // DelAll: one notification per removed key, each key once.
  for (const char* i : {"Eth3", "Eth4", "Eth5"}) vip->intfIdSetIs(IntfId(i), i);
  w.events.clear();
  vip->intfIdSetDelAll();
  std::sort(w.events.begin(), w.events.end());
  EXPECT_EQ(w.events, (std::vector<std::string>{"Eth3", "Eth4", "Eth5"}));
  EXPECT_EQ(vip->intfIdSetSize(), 0u);
  vip->intfIdSetDelAll();
  EXPECT_EQ(w.events.size(), 3u);
}

TEST(LocalVipStatus, NotifieeExceptionGoesToItsHandlerAndDeliveryGoesOn) {
  Kiv::Ptr<LocalVipStatus> vip = makeVip();
  VipWatcher first, second;
  first.throwOn = "Eth1";
  first.notifierIs(vip);
  second.notifierIs(vip);
  vip->intfIdSetIs(IntfId("Eth1"), "eth1");
  EXPECT_EQ(first.failures, std::vector<Kiv::AttrId>{260});
  EXPECT_EQ(second.events, std::vector<std::string>{"Eth1"});
  EXPECT_TRUE(second.failures.empty());
  EXPECT_EQ(vip->intfIdSet(IntfId("Eth1")), "eth1");
  vip->intfIdSetDel(IntfId("Eth1"));
  EXPECT_EQ(first.failures, (std::vector<Kiv::AttrId>{260, 260}));
  EXPECT_EQ(second.events.size(), 2u);
}

TEST(LocalVipSubnetStatus, DefaultsAndNotificationsOnlyOnRealChange) {
  Kiv::Ptr<LocalVipSubnetStatus> s = makeSubnet();
  EXPECT_EQ(s->references(), 1u);
  EXPECT_EQ(s->name(), "");
  EXPECT_STREQ(s->fwkTypeName(), "Routing::Fhrp::LocalVipSubnetStatus");
  EXPECT_EQ(s->srcIp().family(), IpGenAddr::unset);
  EXPECT_EQ(s->vmac().stringValue(), "00:00:00:00:00:00");
  EXPECT_EQ(s->ipAddrsSize(), 0u);
  EXPECT_EQ(s->intfDevName(), "vlan10");
  EXPECT_EQ(s->vrfName(), L3::VrfName("red"));
  EXPECT_EQ(s->netNs(), Dravo::NamespaceName("ns-red"));
  const char* names[] = {"intfSubnet", "intfDevName", "vrfName", "netNs",
                         "vmac",       "srcIp",       "ipAddrs"};
  for (Kiv::AttrId id = 258; id <= 264; ++id) EXPECT_EQ(s->attributeString(id), names[id - 258]);
  EXPECT_EQ(s->attributeString(257), "unknown");
  EXPECT_EQ(s->attributeString(265), "unknown");

  SubnetWatcher w;
  w.notifierIs(s);
  s->srcIpIs(IpGenAddr());  // already unset
  s->vmacIs(Dravo::EthAddr("00:00:00:00:00:00"));
  EXPECT_TRUE(w.events.empty());
  s->srcIpIs(IpGenAddr("10.0.0.1"));
  s->srcIpIs(IpGenAddr("10.0.0.1"));
  s->vmacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
  s->vmacIs(Dravo::EthAddr("02:1c:73:00:00:99"));
  EXPECT_EQ(w.events, (std::vector<std::string>{"srcIp", "vmac"}));
  EXPECT_EQ(s->srcIp(), IpGenAddr("10.0.0.1"));
  EXPECT_EQ(s->vmac().stringValue(), "02:1c:73:00:00:99");

  w.events.clear();
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), true);
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), true);
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), false);
  s->ipAddrsIs(IpGenAddr("10.0.0.2"), true);
  EXPECT_EQ(w.events,
            (std::vector<std::string>{"ipAddrs 10.0.0.1", "ipAddrs 10.0.0.1", "ipAddrs 10.0.0.2"}));
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("10.0.0.1")));
  EXPECT_TRUE(s->ipAddrs(IpGenAddr("10.0.0.2")));
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("10.0.0.3")));
  // Same bytes, other family: another key.
  EXPECT_FALSE(s->ipAddrs(IpGenAddr("a00:2::")));

  w.events.clear();
  EXPECT_FALSE(s->ipAddrsDel(IpGenAddr("10.0.0.3")));  // absent: false, silent
  EXPECT_TRUE(w.events.empty());
  EXPECT_TRUE(s->ipAddrsDel(IpGenAddr("10.0.0.2")));  // returns the removed flag
  EXPECT_EQ(w.events, std::vector<std::string>{"ipAddrs 10.0.0.2"});
  LocalVipSubnetStatus::IpAddrsIterator it = s->ipAddrsIterator();
  EXPECT_FALSE(s->ipAddrsDel(it));  // 10.0.0.1 carried false
  EXPECT_EQ(w.events.size(), 2u);
  EXPECT_EQ(s->ipAddrsSize(), 0u);

  for (const char* a : {"10.0.0.4", "10.0.0.5"}) s->ipAddrsIs(IpGenAddr(a), true);
  w.events.clear();
  s->ipAddrsDelAll();
  std::sort(w.events.begin(), w.events.end());
  EXPECT_EQ(w.events, (std::vector<std::string>{"ipAddrs 10.0.0.4", "ipAddrs 10.0.0.5"}));
}

TEST(LocalVipSubnetStatus, NotifieeExceptionCarriesTheAttributeId) {
  Kiv::Ptr<LocalVipSubnetStatus> s = makeSubnet();
  SubnetWatcher thrower, quiet;
  thrower.throwing = true;
  thrower.notifierIs(s);
  quiet.notifierIs(s);
  s->vmacIs(Dravo::EthAddr("02:00:00:00:00:01"));
  s->srcIpIs(IpGenAddr("10.0.0.1"));
  s->ipAddrsIs(IpGenAddr("10.0.0.1"), true);
  EXPECT_EQ(thrower.failures, (std::vector<Kiv::AttrId>{262, 263, 264}));
  EXPECT_EQ(quiet.events, (std::vector<std::string>{"vmac", "srcIp", "ipAddrs 10.0.0.1"}));
  EXPECT_TRUE(quiet.failures.empty());
}

}  // namespace
}  // namespace Routing::Fhrp
