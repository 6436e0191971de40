// A state machine under test: a manual clock, system() recorded, inputs
// published by the test itself.
#pragma once

#include <gtest/gtest.h>

#include "AclPlugin/sm/Reactors.h"
#include "tests/support/Capture.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/ManualLoop.h"

namespace Routing::Fhrp {

class SmFixture : public ::testing::Test {
 protected:
  SmFixture() { FakeSystem::reset(); }

  Kiv::Ptr<VirtualIpArpTablesSm> makeSm() {
    return new VirtualIpArpTablesSm(vip, vip6, vrMac, allIntf, allVrf);
  }
  void vrfIs(const char* name, Ip::VrfState state, const char* ns) {
    allVrf->vrfIs(L3::VrfName(name), state, Dravo::NamespaceName(ns));
  }

  ManualLoop loop;
  LogCapture logs;
  Kiv::Ptr<VirtualIpStatus> vip = new VirtualIpStatus();
  Kiv::Ptr<VirtualIp6Status> vip6 = new VirtualIp6Status();
  Kiv::Ptr<VirtualRouterMacStatus> vrMac = new VirtualRouterMacStatus();
  Kiv::Ptr<Interface::AllIntfStatusDir> allIntf = new Interface::AllIntfStatusDir();
  Kiv::Ptr<Ip::AllVrfStatusLocal> allVrf = new Ip::AllVrfStatusLocal();
};

}  // namespace Routing::Fhrp
