// The view the host reads: a backlog that grows during a slow drain, with
// its age; each pair's state; and the pairs a repair may queue.
#include "AclPlugin/view/SmView.h"

#include <gmock/gmock.h>

#include "tests/AclPlugin/sm/VipSmFixture.h"

namespace Routing::Fhrp {
namespace {

using ::testing::IsEmpty;

struct State {
  bool installed, queued, unwanted;
  friend bool operator==(const State&, const State&) = default;
};
State stateOf(const Acl::PluginView& view, const std::string& prefix) {
  for (const Acl::VipView& v : view.virtualIps())
    if (v.prefix == prefix && !v.intfs.empty())
      return {v.intfs[0].installed, v.intfs[0].queued, v.intfs[0].unwanted};
  ADD_FAILURE() << "no " << prefix;
  return {};
}

TEST_F(VipSmFixture, ViewShowsAGrowingBacklogWithItsAgeDuringASlowDrain) {
  redOnVlan10();
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  sm->maxProcessTimeIs(0);  // one pair per slice
  Kiv::Ptr<SmView> view = new SmView(sm);
  EXPECT_EQ(view->backlog().size, 0u);
  EXPECT_EQ(view->backlog().oldestAge, 0);

  vipIs("red", "10.0.0.1/32", "ns-red")->intfIdSetIs(vlan10);
  loop.clock().advance(0.5);
  vipIs("red", "10.0.0.2/32", "ns-red")->intfIdSetIs(vlan10);
  EXPECT_EQ(view->backlog().size, 2u);
  EXPECT_DOUBLE_EQ(view->backlog().oldestAge, 0.5);
  loop.clock().advance(0.25);
  vipIs("red", "10.0.0.3/32", "ns-red")->intfIdSetIs(vlan10);
  EXPECT_EQ(view->backlog().size, 3u);
  EXPECT_DOUBLE_EQ(view->backlog().oldestAge, 0.75);
  EXPECT_EQ(stateOf(*view, "10.0.0.1/32"), (State{false, true, false}));

  tick();
  EXPECT_EQ(view->backlog().size, 2u);
  EXPECT_EQ(view->backlog().overruns, 1u);
  tick();
  tick();
  EXPECT_EQ(view->backlog().size, 0u);
  EXPECT_EQ(view->backlog().oldestAge, 0);
  EXPECT_EQ(stateOf(*view, "10.0.0.1/32"), (State{true, false, false}));

  // The old pair's record stays until its decision runs.
  vip->virtualIp(vipKey("red", "10.0.0.1/32"))->intfIdSetIs(vlan10, "shutdown");
  EXPECT_EQ(stateOf(*view, "10.0.0.1/32"), (State{true, true, true}));
  EXPECT_EQ(view->backlog().oldestAge, 0);  // queued anew, not at its first time
}

TEST_F(VipSmFixture, ViewExpectsALateNamespacesPairAndQueuesItOnRequest) {
  vrfIs("green", Ip::VrfState::deleting, "ns-green");
  intfIs("Vlan10", "vlan10");
  Kiv::Ptr<VirtualIpArpTablesSm> sm = runningSm();
  Kiv::Ptr<SmView> view = new SmView(sm);
  vipIs("green", "10.0.40.1/32", "ns-green")->intfIdSetIs(vlan10);
  tick();
  EXPECT_THAT(view->expected().pairs, IsEmpty());
  vrfIs("green", Ip::VrfState::active, "ns-green");
  tick();
  EXPECT_THAT(FakeSystem::commands(), IsEmpty());  // the plug-in never retries by itself

  const Acl::Expected e = view->expected();
  ASSERT_EQ(e.pairs.size(), 1u);
  const Acl::ExpectedPair& p = e.pairs[0];
  EXPECT_EQ(p.ns + " " + p.dev + " " + p.vrf + " " + p.prefix + " " + p.intf,
            "ns-green vlan10 green 10.0.40.1/32 Vlan10");
  EXPECT_FALSE(p.queued);
  EXPECT_FALSE(p.installed);
  EXPECT_EQ(e.namespaces, (std::vector<std::string>{"default", "ns-green"}));
  EXPECT_TRUE(view->pairQueueIs(p));
  EXPECT_TRUE(view->expected().pairs[0].queued);
  // What the repair then runs agent_verify checks in the kernel.
  Acl::ExpectedPair unknown = p;
  unknown.prefix = "10.0.99.1/32";
  EXPECT_FALSE(view->pairQueueIs(unknown));
}

}  // namespace
}  // namespace Routing::Fhrp
