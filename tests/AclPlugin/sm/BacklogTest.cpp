// The backlog and its timer wheel: pairs are decided only after
// initialization, only in a usable VRF, and a slice gives the loop back when
// its time budget is spent. A burst for one pair is decided once (see
// VirtualIpTrackingTest).
#include <gmock/gmock.h>

#include <algorithm>
#include <tuple>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const char* const wheelEntry =
    "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIpTimerWheel()";
const char* const decisionEntry =
    "void Routing::Fhrp::VirtualIpArpTablesSm::doHandleBacklogIp(const "
    "Routing::Fhrp::VrfIpWithMaskPair&, Dravo::IntfId)";

long countOf(const Lines& lines, const std::string& text) {
  return std::count(lines.begin(), lines.end(), text);
}

TEST_F(VipSmFixture, BacklogWaitsForInitialization) {
  redOnVlan10();
  vipIs("red", "10.0.0.1/32", "ns-red")->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();  // start-up queued the pair
  sm->hasNotificationActiveIs(true);
  FakeSystem::reset();
  sm->initializedIs(false);
  TraceCapture traces("VirtualIpArpMangleSm/8");

  tick();
  sm->doWriteToBacklog(vipKey("red", "10.0.0.1/32"), vlan10);
  tick();
  // The wheel fired twice and left the entry where it was.
  EXPECT_EQ(countOf(traces.at(8), wheelEntry), 2);
  EXPECT_EQ(countOf(traces.at(8), decisionEntry), 0);
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 1u);
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());

  sm->initializedIs(true);
  sm->doWriteToBacklog(vipKey("red", "10.0.0.1/32"), vlan10);
  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines(inRed, true, "10.0.0.1", "vlan10"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 0u);
}

TEST_F(VipSmFixture, PairsOfUnusableVrfsAreDroppedWithoutCommands) {
  vrfIs("green", Ip::VrfState::deleting, "ns-green");
  intfIs("Vlan10", "vlan10");
  vipIs("blue", "10.0.0.1/32", "ns-blue")->intfIdSetIs(vlan10);  // no VRF status at all
  vipIs("green", "10.0.0.2/32", "ns-green")->intfIdSetIs(vlan10);
  vipIs("default", "10.0.0.3/32", "default")->intfIdSetIs(vlan10);  // needs no VRF status
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  FakeSystem::reset();
  ASSERT_EQ(sm->virtualIpBacklogCollectionSize(), 3u);
  TraceCapture traces("VirtualIpArpMangleSm/7");

  tick();
  EXPECT_EQ(FakeSystem::commands(), mangleLines("", true, "10.0.0.3", "vlan10"));
  EXPECT_THAT(traces.at(7),
              UnorderedElementsAre("Vrf blue does not exist!", "Vrf green does not exist!",
                                   "10.0.0.3/32 is default subnet"));
  EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), 0u);
  EXPECT_EQ(sm->codefCounter(), 0u);  // three entries fit in one slice
  EXPECT_FALSE(sm->localVip(vrfIp("blue", "10.0.0.1")));
  EXPECT_FALSE(sm->localVip(vrfIp("green", "10.0.0.2")));
  EXPECT_FALSE(sm->localVipSubnetIterator()) << "a /32 virtual IP has no subnet to serve";

  // Dropped, not retried: the VRF's arrival does not bring the pair back.
  FakeSystem::reset();
  vrfIs("blue", Ip::VrfState::active, "ns-blue");
  tick();
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());
}

TEST_F(VipSmFixture, SliceBudgetIsSecondsOfTheLoopClockAndEverySliceMakesProgress) {
  redOnVlan10();
  for (const char* a : {"10.0.0.1/32", "10.0.0.2/32", "10.0.0.3/32", "10.0.0.4/32"})
    vipIs("red", a, "ns-red")->intfIdSetIs(vlan10);
  Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
  sm->hasNotificationActiveIs(true);
  // Every command takes a little over a quarter of a second (off the wheel's
  // 10 ms grid, so that a re-armed slice waits for the next tick).
  FakeSystem::reset();
  FakeSystem::resultIs([this](const std::string&) {
    loop.clock().nowIs(loop.clock().now() + 0.2505);
    return 0;
  });
  TraceCapture traces("VirtualIpArpMangleSm/3");
  // One second takes two pairs; a budget of 0 still takes one per slice.
  for (auto [budget, left, spent] :
       {std::tuple{1.0, 2u, "1.002"}, {0.0, 1u, "0.501"}, {0.0, 0u, "0.501"}}) {
    SCOPED_TRACE(budget);
    sm->maxProcessTimeIs(budget);
    traces.clear();
    tick();
    EXPECT_EQ(sm->virtualIpBacklogCollectionSize(), left);
    EXPECT_THAT(traces.at(3), ::testing::Contains("Early exit from processing a large vips after " +
                                                  std::string(spent) + " seconds "));
  }
  EXPECT_EQ(sm->codefCounter(), 3u);
  EXPECT_EQ(FakeSystem::commands().size(), 8u);
  // The last slice re-armed the wheel; its next pass finds nothing to do.
  traces.clear();
  tick();
  tick();
  EXPECT_THAT(traces.at(3), IsEmpty());
  EXPECT_TRUE(loop.loop().idle());
}

}  // namespace
}  // namespace Routing::Fhrp
