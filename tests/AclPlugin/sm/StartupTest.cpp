#include <gmock/gmock.h>

#include <tuple>

#include "tests/AclPlugin/sm/SmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

const Lines defaultFlushes = {"iptables -t mangle -F PREROUTING",
                              "ip6tables -t mangle -F PREROUTING", "arptables -F OUT"};

TEST_F(SmFixture, NullInputsFlushDefaultNamespaceAndInitialize) {
  TraceCapture traces("VirtualIpArpMangleSm/8");
  Kiv::Ptr<VirtualIpArpTablesSm> sm(
      new VirtualIpArpTablesSm(nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(FakeSystem::commands(), defaultFlushes);
  EXPECT_TRUE(sm->initialized());
  Kiv::Ptr<const Oru::TimerWheel> wheel = sm->virtualIpTimerWheel();
  ASSERT_TRUE(wheel);
  EXPECT_EQ(std::tuple(wheel->tickMsecs(), wheel->initialMaxTicks(), wheel->preserveOrder(),
                       wheel->bucketCount(), sm->maxProcessTime()),
            std::tuple(10u, 255u, false, 1024u, 1.0));
  const std::string sm_ = "void Routing::Fhrp::VirtualIpArpTablesSm::";
  EXPECT_EQ(traces.at(8).at(0), sm_ + "handleInitialized()");
  EXPECT_THAT(traces.at(8), ::testing::Contains(sm_ + "purgeMangleTables()"));
  EXPECT_THAT(logs.lines(), IsEmpty());
}

TEST_F(SmFixture, FlushesActiveVrfNamespacesThenDefaultAndLogsVrfFailures) {
  vrfIs("red", Ip::VrfState::active, "ns-red");
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  vrfIs("green", Ip::VrfState::inactive, "ns-green");
  vrfIs("white", Ip::VrfState::deleting, "ns-white");
  vrfIs("default", Ip::VrfState::active, "default");
  FakeSystem::failWhen("ip netns exec ns-red ip6tables");
  FakeSystem::failWhen("ip netns exec ns-blue iptables", -1);
  FakeSystem::failWhen("ip netns exec ns-blue arptables", 1 << 8);
  TraceCapture traces("VirtualIpArpMangleSm/0");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  // VRFs in the collection's own order, nothing skipped after a failure; the
  // default VRF's namespace is pasted through "ip netns exec" like any other.
  Lines expected;
  for (auto it = allVrf->vrfIterator(); it; ++it) {
    const std::string ns = it.value()->netNs().stringValue().stdString();
    if (ns == "ns-red" || ns == "ns-blue" || ns == "default")
      for (const std::string& f : defaultFlushes)
        expected.push_back("ip netns exec " + ns + " " + f);
  }
  expected.insert(expected.end(), defaultFlushes.begin(), defaultFlushes.end());
  EXPECT_EQ(FakeSystem::commands(), expected);
  EXPECT_TRUE(sm->initialized());
  Lines logged;
  for (const LogLine& l : logs.lines()) logged.push_back(l.name + ": " + l.text);
  const std::string failed = "Failed to flush ", inNs = " for network namespace ";
  EXPECT_THAT(logged,
              UnorderedElementsAre(
                  "FHRP_IPTABLES_FLUSH_ERROR: " + failed + "iptables" + inNs + "ns-red.",
                  "FHRP_IPTABLES_FLUSH_ERROR: " + failed + "iptables" + inNs + "ns-blue.",
                  "FHRP_ARPTABLES_FLUSH_ERROR: " + failed + "arptables" + inNs + "ns-blue."));
  EXPECT_THAT(traces.at(0), UnorderedElementsAre(failed + "ip6tables" + inNs + "ns-red",
                                                 failed + "iptables" + inNs + "ns-blue",
                                                 failed + "arptables" + inNs + "ns-blue"));
}

TEST_F(SmFixture, FailingDefaultNamespaceFlushIsFatal) {
  for (const std::string& failing : defaultFlushes) {
    EXPECT_DEATH(
        {
          FakeSystem::resultIs([failing](const std::string& c) { return c == failing ? 1 : 0; });
          makeSm();
        },
        "ret == 0");
  }
}

TEST_F(SmFixture, TeardownRunsNoCommandAndDetachesEverything) {
  const VrfIpWithMaskPair key(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24"));
  Kiv::Ptr<VirtualIpIntfStatus> entry = vip->virtualIpIs(key, Dravo::NamespaceName("ns-red"));
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  ASSERT_EQ(entry->notifieeCount() + vip->notifieeCount() + allVrf->notifieeCount(), 3u);
  FakeSystem::reset();
  sm = nullptr;
  loop.advance(1.0);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
  for (const Kiv::Entity* e : std::initializer_list<const Kiv::Entity*>{
           vip.ptr(), vip6.ptr(), vrMac.ptr(), allVrf.ptr(), entry.ptr()})
    EXPECT_EQ(e->notifieeCount(), 0u);
}

TEST_F(SmFixture, ReactorsFollowInputsAndTheNotificationSwitch) {
  const VrfIpWithMaskPair a(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24"));
  const VrfIpPair b(L3::VrfName("red"), Dravo::IpGenAddr("2001:db8::1"));
  const VrfIpPair c(L3::VrfName("red"), Dravo::IpGenAddr("2001:db8::2"));
  vip->virtualIpIs(a, Dravo::NamespaceName("ns-red"));
  vip6->virtualIpIs(b, Dravo::NamespaceName("ns-red"));
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  auto* reactorA = sm->virtualIpIntfStatus(a);
  ASSERT_TRUE(reactorA && sm->virtualIp6IntfStatus(b));
  EXPECT_FALSE(reactorA->isNotificationActive()) << "inactive until switched on";
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(reactorA->isNotificationActive());

  // Setting the watched object again keeps its reactor; another one replaces
  // it, and the attach upkeep drops the reactors of keys it lacks.
  sm->virtualIpStatusIs(vip);
  EXPECT_EQ(sm->virtualIpIntfStatus(a), reactorA);
  Kiv::Ptr<VirtualIpStatus> other = new VirtualIpStatus();
  sm->virtualIpStatusIs(other);
  EXPECT_EQ(vip->notifieeCount(), 0u);
  EXPECT_EQ(other->notifieeCount(), 1u);
  EXPECT_EQ(sm->virtualIpIntfStatus(a), nullptr);

  // Per-key upkeep, then a whole-collection replacement re-syncs.
  vip6->virtualIpIs(c, Dravo::NamespaceName("ns-red"));
  EXPECT_NE(sm->virtualIp6IntfStatus(c), nullptr);
  vip6->virtualIpDel(b);
  EXPECT_EQ(sm->virtualIp6IntfStatus(b), nullptr);
  Kiv::Ptr<VirtualIp6IntfStatus> d =
      new VirtualIp6IntfStatus(VrfIpPair(L3::VrfName("blue"), Dravo::IpGenAddr("2001:db8::3")),
                               Dravo::NamespaceName("ns-blue"));
  vip6->virtualIpIs(std::vector<Kiv::Ptr<VirtualIp6IntfStatus>>{d});
  EXPECT_EQ(sm->virtualIp6IntfStatus(c), nullptr);
  EXPECT_NE(sm->virtualIp6IntfStatus(d->key()), nullptr);

  EXPECT_THROW(sm->virtualIpIntfStatusIs(nullptr), Kiv::RangeException);
  EXPECT_THAT([&] { sm->virtualIp6IntfStatusIs(nullptr); },
              ::testing::ThrowsMessage<Kiv::RangeException>(::testing::StrEq(
                  "null _virtualIp6IntfStatus parameter to mutator for "
                  "Routing::Fhrp::VirtualIpArpTablesSm::virtualIp6IntfStatus not allowed\"")));
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
