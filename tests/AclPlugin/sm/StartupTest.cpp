#include <gmock/gmock.h>

#include "tests/AclPlugin/sm/SmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const defaultFlushes[] = {"iptables -t mangle -F PREROUTING",
                                      "ip6tables -t mangle -F PREROUTING", "arptables -F OUT"};

TEST_F(SmFixture, NullInputsFlushDefaultNamespaceAndInitialize) {
  TraceCapture traces("VirtualIpArpMangleSm/6,8");
  Kiv::Ptr<VirtualIpArpTablesSm> sm(
      new VirtualIpArpTablesSm(nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_THAT(FakeSystem::commands(),
              ElementsAre(defaultFlushes[0], defaultFlushes[1], defaultFlushes[2]));
  EXPECT_TRUE(sm->initialized());
  ASSERT_TRUE(sm->virtualIpTimerWheel());
  EXPECT_EQ(sm->virtualIpTimerWheel()->tickMsecs(), 10u);
  EXPECT_EQ(sm->virtualIpTimerWheel()->initialMaxTicks(), 255u);
  EXPECT_FALSE(sm->virtualIpTimerWheel()->preserveOrder());
  EXPECT_EQ(sm->virtualIpTimerWheel()->bucketCount(), 1024u);
  EXPECT_EQ(sm->maxProcessTime(), 1.0);
  EXPECT_EQ(sm->codefCounter(), 0u);
  // Start-up traces its steps, and every command line alone at level 6.
  EXPECT_THAT(traces.at(6), ElementsAre(defaultFlushes[0], defaultFlushes[1], defaultFlushes[2]));
  std::vector<std::string> entries = traces.at(8);
  ASSERT_GE(entries.size(), 2u);
  EXPECT_EQ(entries[0], "void Routing::Fhrp::VirtualIpArpTablesSm::handleInitialized()");
  EXPECT_NE(std::find(entries.begin(), entries.end(),
                      "void Routing::Fhrp::VirtualIpArpTablesSm::purgeMangleTables()"),
            entries.end());
  EXPECT_THAT(logs.lines(), IsEmpty());
}

TEST_F(SmFixture, FlushesActiveVrfNamespacesThenDefault) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  vrfIs("blue", Ip::VrfState::inactive, "ns-blue");
  vrfIs("green", Ip::VrfState::deleting, "ns-green");
  vrfIs("default", Ip::VrfState::active, "default");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  std::vector<std::string> expected;
  // VRFs in the collection's own order; the default VRF's namespace is
  // pasted through "ip netns exec" like any other.
  for (auto it = allVrf->vrfIterator(); it; ++it) {
    if (it.value()->state() != Ip::VrfState::active) continue;
    for (const char* f : defaultFlushes)
      expected.push_back("ip netns exec " + it.value()->netNs().stringValue().stdString() + " " +
                         f);
  }
  ASSERT_EQ(expected.size(), 6u);
  for (const char* f : defaultFlushes) expected.push_back(f);
  EXPECT_EQ(FakeSystem::commands(), expected);
}

TEST_F(SmFixture, FailingVrfFlushIsLoggedAndTheRestStillRuns) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  FakeSystem::failWhen("ip netns exec ns-red ip6tables");
  FakeSystem::failWhen("ip netns exec ns-blue iptables", -1);
  FakeSystem::failWhen("ip netns exec ns-blue arptables", 1 << 8);
  TraceCapture traces("VirtualIpArpMangleSm/0");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  EXPECT_EQ(FakeSystem::commands().size(), 9u);  // nothing skipped
  EXPECT_TRUE(sm->initialized());
  std::vector<std::string> logged;
  for (const LogLine& l : logs.lines()) logged.push_back(l.name + ": " + l.text);
  EXPECT_THAT(logged,
              ::testing::UnorderedElementsAre(
                  "FHRP_IPTABLES_FLUSH_ERROR: Failed to flush iptables for network namespace "
                  "ns-red.",
                  "FHRP_IPTABLES_FLUSH_ERROR: Failed to flush iptables for network namespace "
                  "ns-blue.",
                  "FHRP_ARPTABLES_FLUSH_ERROR: Failed to flush arptables for network namespace "
                  "ns-blue."));
  EXPECT_THAT(traces.at(0), ::testing::UnorderedElementsAre(
                                "Failed to flush ip6tables for network namespace ns-red",
                                "Failed to flush iptables for network namespace ns-blue",
                                "Failed to flush arptables for network namespace ns-blue"));
}

TEST_F(SmFixture, FailingDefaultNamespaceFlushIsFatal) {
  for (const char* failing : defaultFlushes) {
    EXPECT_DEATH(
        {
          FakeSystem::resultIs([failing](const std::string& c) { return c == failing ? 1 : 0; });
          makeSm();
        },
        "ret == 0");
  }
}

TEST_F(SmFixture, TeardownRunsNoCommandAndDetachesEverything) {
  vip->virtualIpIs(VrfIpWithMaskPair(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24")),
                   Dravo::NamespaceName("ns-red"));
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  ASSERT_EQ(vip->notifieeCount(), 1u);
  ASSERT_EQ(allVrf->notifieeCount(), 1u);
  FakeSystem::reset();
  sm = nullptr;
  loop.advance(1.0);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  EXPECT_EQ(vip->notifieeCount(), 0u);
  EXPECT_EQ(vip6->notifieeCount(), 0u);
  EXPECT_EQ(vrMac->notifieeCount(), 0u);
  EXPECT_EQ(allVrf->notifieeCount(), 0u);
  EXPECT_EQ(
      vip->virtualIp(VrfIpWithMaskPair(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24")))
          ->notifieeCount(),
      0u);
}

TEST_F(SmFixture, ReactorsFollowInputsAndTheNotificationSwitch) {
  const VrfIpWithMaskPair a(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24"));
  const VrfIpPair b(L3::VrfName("red"), Dravo::IpGenAddr("2001:db8::1"));
  vip->virtualIpIs(a, Dravo::NamespaceName("ns-red"));
  vip6->virtualIpIs(b, Dravo::NamespaceName("ns-red"));
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  ASSERT_NE(sm->virtualIpIntfStatus(a), nullptr);
  ASSERT_NE(sm->virtualIp6IntfStatus(b), nullptr);
  // Inactive until switched on.
  EXPECT_FALSE(sm->virtualIpIntfStatus(a)->isNotificationActive());
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(sm->virtualIpIntfStatus(a)->isNotificationActive());
  EXPECT_TRUE(sm->virtualIp6IntfStatus(b)->isNotificationActive());

  // Setting the watched object again keeps its reactor; another one replaces it.
  auto* reactorBefore = sm->virtualIpIntfStatus(a);
  sm->virtualIpStatusIs(vip);
  EXPECT_EQ(vip->notifieeCount(), 1u);
  EXPECT_EQ(sm->virtualIpIntfStatus(a), reactorBefore);
  Kiv::Ptr<VirtualIpStatus> other = new VirtualIpStatus();
  sm->virtualIpStatusIs(other);
  EXPECT_EQ(vip->notifieeCount(), 0u);
  EXPECT_EQ(other->notifieeCount(), 1u);
  EXPECT_EQ(sm->virtualIpStatus(), other);
  // The new input has no virtual IPs: the attach upkeep drops the old reactor.
  EXPECT_EQ(sm->virtualIpIntfStatus(a), nullptr);
  sm->virtualIpStatusDel();
  EXPECT_EQ(other->notifieeCount(), 0u);
  EXPECT_FALSE(sm->virtualIpStatus());

  // Per-key upkeep: a new key gets a reactor, a removed one loses it.
  const VrfIpPair c(L3::VrfName("red"), Dravo::IpGenAddr("2001:db8::2"));
  vip6->virtualIpIs(c, Dravo::NamespaceName("ns-red"));
  EXPECT_NE(sm->virtualIp6IntfStatus(c), nullptr);
  vip6->virtualIpDel(b);
  EXPECT_EQ(sm->virtualIp6IntfStatus(b), nullptr);

  // A whole-collection replacement re-syncs the reactors.
  Kiv::Ptr<VirtualIp6IntfStatus> d =
      new VirtualIp6IntfStatus(VrfIpPair(L3::VrfName("blue"), Dravo::IpGenAddr("2001:db8::3")),
                               Dravo::NamespaceName("ns-blue"));
  vip6->virtualIpIs(std::vector<Kiv::Ptr<VirtualIp6IntfStatus>>{d});
  EXPECT_EQ(sm->virtualIp6IntfStatus(c), nullptr);
  EXPECT_NE(sm->virtualIp6IntfStatus(d->key()), nullptr);

  EXPECT_THROW(sm->virtualIpIntfStatusIs(nullptr), Kiv::RangeException);
  try {
    sm->virtualIp6IntfStatusIs(nullptr);
  } catch (const Kiv::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "null _virtualIp6IntfStatus parameter to mutator for "
                 "Routing::Fhrp::VirtualIpArpTablesSm::virtualIp6IntfStatus not allowed\"");
  }
}

TEST_F(SmFixture, ZombieReactorsHandleNothing) {
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  TraceCapture traces("VirtualIpArpMangleSm/8");
  sm->kivDoZombieReactors(true);
  EXPECT_TRUE(sm->isZombie());
  vrMac->lumoVirtualMacIs(Dravo::EthAddr("02:00:00:00:00:01"));
  vrfIs("red", Ip::VrfState::active, "ns-red");
  EXPECT_THAT(traces.lines(), IsEmpty());
}

}  // namespace
}  // namespace Routing::Fhrp
