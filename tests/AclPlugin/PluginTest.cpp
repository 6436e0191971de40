#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AclPlugin/VirtualIpArpTablesPlugin.h"
#include "tests/support/Capture.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/ManualLoop.h"

namespace Routing::Fhrp {
namespace {

using ::testing::ElementsAre;

struct PluginObserver : VirtualIpArpTablesPlugin::NotifieeConst {
  int sms = 0;
  int contexts = 0;
  void onVirtualIpArpTablesSm() override { ++sms; }
  void onContext() override { ++contexts; }
};

class PluginTest : public ::testing::Test {
 protected:
  PluginTest() {
    FakeSystem::reset();
    em->entityIs("routing/fhrp/virtualIpStatus", vip);
    em->entityIs("routing6/fhrp/virtualIpStatus", new VirtualIp6Status());
    em->entityIs("routing/fhrp/vrMacStatus", new VirtualRouterMacStatus());
    em->entityIs("interface/status/all", allIntf);
    em->entityIs(Cell::path("ip/vrf/status/local", 0), allVrf);
  }
  Kiv::Ptr<VirtualIpArpTablesPlugin> initPlugin() {
    Kiv::Ptr<VirtualIpArpTablesPlugin> p =
        virtualIpArpTablesPluginFactory("VirtualIpArpTablesPlugin");
    p->init(context);
    return p;
  }

  ManualLoop loop;
  Kiv::Ptr<Mirel::EntityManager> em = new Mirel::EntityManager();
  Kiv::Ptr<Acl::PluginContext> context = new Acl::PluginContext(em);
  Kiv::Ptr<VirtualIpStatus> vip = new VirtualIpStatus();
  Kiv::Ptr<Interface::AllIntfStatusDir> allIntf = new Interface::AllIntfStatusDir();
  Kiv::Ptr<Ip::AllVrfStatusLocal> allVrf = new Ip::AllVrfStatusLocal();
};

TEST_F(PluginTest, LoaderRegistersAtLoadTimeAndInitRunsTheWholeRoad) {
  // Registered by the module's static loader.
  const auto& regs = Plugin::Impl::LoaderImpl::registrations();
  auto reg = std::find_if(regs.begin(), regs.end(), [](const auto& r) {
    return r.pluginName == "VirtualIpArpTablesPluginLoader";
  });
  ASSERT_NE(reg, regs.end());
  EXPECT_EQ(reg->loaderName, "Acl::DefaultPluginLoader");
  EXPECT_EQ(reg->initCaller, virtualIpArpTablesPluginLoader().initCaller());

  TraceCapture traces("VirtualIpArpMangleSm/0");
  Acl::DefaultPluginLoader().doInit(context.ptr());
  Kiv::Ptr<VirtualIpArpTablesPlugin> plugin = virtualIpArpTablesPluginLoader().plugin();
  ASSERT_TRUE(plugin);
  EXPECT_EQ(plugin->context(), context);
  // Mounts complete later, on the loop, never inside init.
  EXPECT_FALSE(plugin->virtualIpArpTablesSm());
  loop.runUntilIdle();
  ASSERT_TRUE(plugin->virtualIpArpTablesSm());
  EXPECT_TRUE(plugin->virtualIpArpTablesSm()->hasNotificationActive());
  EXPECT_EQ(FakeSystem::commands().size(), 3u);
  EXPECT_THAT(traces.at(0),
              ElementsAre("virtual void Routing::Fhrp::VirtualIpArpTablesPluginLoader::init("
                          "Acl::PluginContext*)Fhrp Acl Plugin called",
                          "init", "doMountsComplete"));

  // Five read-only mounts in order; only the fifth is a cell path.
  std::vector<std::string> mounts;
  for (const Mirel::MountRequest& m : em->mountLog())
    mounts.push_back(m.path.stdString() + " " + m.typeName.stdString() + " " + m.mode.stdString());
  EXPECT_THAT(mounts,
              ElementsAre("routing/fhrp/virtualIpStatus Routing::Fhrp::VirtualIpStatus r",
                          "routing6/fhrp/virtualIpStatus Routing::Fhrp::VirtualIp6Status r",
                          "routing/fhrp/vrMacStatus Routing::Fhrp::VirtualRouterMacStatus r",
                          "interface/status/all Interface::AllIntfStatusDir r",
                          "cell/0/ip/vrf/status/local Ip::AllVrfStatusLocal r"));
}

TEST_F(PluginTest, FailedMountsStillMakeAStateMachineWithNullInputs) {
  em->entityDel("routing/fhrp/vrMacStatus");
  em->entityIs("routing6/fhrp/virtualIpStatus", new VirtualIpStatus());  // wrong type
  em->entityDel("ip/vrf/status/local");
  Kiv::Ptr<VirtualIpArpTablesPlugin> plugin = initPlugin();
  loop.runUntilIdle();
  Kiv::Ptr<VirtualIpArpTablesSm> sm = plugin->virtualIpArpTablesSm();
  ASSERT_TRUE(sm);
  EXPECT_TRUE(sm->virtualIpStatus() == vip && sm->allIntfStatusDir() == allIntf);
  EXPECT_FALSE(sm->virtualIp6Status() || sm->virtualRouterMacStatus());
  EXPECT_EQ(sm->allVrfStatusLocal(), allVrf);  // found at its cell path
  // Teardown turns the state machine off.
  ASSERT_TRUE(sm->hasNotificationActive());
  plugin = nullptr;
  EXPECT_FALSE(sm->hasNotificationActive());
}

TEST_F(PluginTest, SameInputsKeepTheStateMachineAnotherInputReplacesIt) {
  Kiv::Ptr<VirtualIpArpTablesPlugin> plugin = initPlugin();
  PluginObserver observer;
  observer.notifierIs(plugin);
  loop.runUntilIdle();
  Kiv::Ptr<VirtualIpArpTablesSm> first = plugin->virtualIpArpTablesSm();
  ASSERT_TRUE(first);
  FakeSystem::reset();

  // The status is not examined: a failed one with the same entities keeps it.
  plugin->doMountsComplete(Mirel::MountStatus{Mirel::MountStatus::failed, "x"}, em);
  EXPECT_EQ(plugin->virtualIpArpTablesSm(), first);
  EXPECT_EQ(observer.sms, 1);
  EXPECT_TRUE(FakeSystem::commands().empty());

  Kiv::Ptr<Ip::AllVrfStatusLocal> newVrfs = new Ip::AllVrfStatusLocal();
  em->entityIs(Cell::path("ip/vrf/status/local", 0), newVrfs);
  plugin->doMountsComplete(Mirel::MountStatus{}, em);
  Kiv::Ptr<VirtualIpArpTablesSm> second = plugin->virtualIpArpTablesSm();
  EXPECT_NE(second, first);
  EXPECT_EQ(second->allVrfStatusLocal(), newVrfs);
  EXPECT_EQ(observer.sms, 2);
  EXPECT_EQ(FakeSystem::commands().size(), 3u);  // the new one flushes from scratch
  EXPECT_EQ(first->references(), 1u) << "only this test holds the old one now";
  first = nullptr;
  EXPECT_EQ(allVrf->notifieeCount(), 0u);

  // Deleting turns notifications off and notifies, once.
  EXPECT_EQ(plugin->virtualIpArpTablesSmDel(), second);
  EXPECT_FALSE(second->hasNotificationActive());
  EXPECT_FALSE(plugin->virtualIpArpTablesSmDel());
  EXPECT_EQ(observer.sms, 3);

  // The context notifies only when it changes.
  for (auto c : {context, Kiv::Ptr<Acl::PluginContext>(new Acl::PluginContext(em))})
    plugin->contextIs(c);
  EXPECT_EQ(observer.contexts, 1);
  observer.notifierIs(nullptr);
}

}  // namespace
}  // namespace Routing::Fhrp
