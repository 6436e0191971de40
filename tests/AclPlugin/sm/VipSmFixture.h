// A running state machine driven tick by tick, with helpers to publish
// virtual IPs and to write the command lines a test expects.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "tests/AclPlugin/sm/SmFixture.h"
#include "tests/support/RuleLines.h"

namespace Routing::Fhrp {

using Lines = std::vector<std::string>;

inline VrfIpWithMaskPair vipKey(const char* vrf, const char* addrWithMask) {
  return VrfIpWithMaskPair(L3::VrfName(vrf), Dravo::IpGenAddrWithMask(addrWithMask));
}
inline VrfIpPair vrfIp(const char* vrf, const char* addr) {
  return VrfIpPair(L3::VrfName(vrf), Dravo::IpGenAddr(addr));
}
inline IntfSubnetPair intfSubnet(const char* intf, const char* subnet) {
  return IntfSubnetPair(Dravo::IntfId(intf), Dravo::IpGenPrefix(subnet));
}

// The recorded command lines that contain `needle`, in order.
inline std::vector<std::string> commandsWith(const std::string& needle) {
  std::vector<std::string> out;
  for (const std::string& c : FakeSystem::commands())
    if (c.find(needle) != std::string::npos) out.push_back(c);
  return out;
}

// Position of the first trace line with this level and text; -1 when absent.
inline long traceIndex(const TraceCapture& traces, unsigned level, const std::string& text) {
  for (std::size_t i = 0; i < traces.lines().size(); ++i)
    if (traces.lines()[i].level == level && traces.lines()[i].text == text) return long(i);
  return -1;
}

class VipSmFixture : public SmFixture {
 protected:
  // One timer-wheel tick. The clock is set to the next 10 ms boundary rather
  // than advanced, so that many ticks do not drift off the wheel's times.
  void tick() {
    const double tickIndex = std::round(loop.clock().now() * 100.0) + 1;
    loop.clock().nowIs(tickIndex * 10 / 1000.0);
    loop.runUntilIdle();
  }

  // A state machine with notifications on, whose start-up work (flush and
  // first installs) is done and forgotten.
  Kiv::Ptr<VirtualIpArpTablesSm> runningSm() {
    Kiv::Ptr<VirtualIpArpTablesSm> sm = makeSm();
    sm->hasNotificationActiveIs(true);
    tick();
    FakeSystem::reset();
    return sm;
  }

  Kiv::Ptr<VirtualIpIntfStatus> vipIs(const char* vrf, const char* addrWithMask, const char* ns) {
    return vip->virtualIpIs(vipKey(vrf, addrWithMask), Dravo::NamespaceName(ns));
  }
  Kiv::Ptr<VirtualIp6IntfStatus> vip6Is(const char* vrf, const char* addr, const char* ns) {
    return vip6->virtualIpIs(vrfIp(vrf, addr), Dravo::NamespaceName(ns));
  }
  void intfIs(const char* intf, const char* dev) {
    allIntf->intfStatusIs(Dravo::IntfId(intf), dev);
  }
  // The set-up most tests start from: VRF red in ns-red, Vlan10 as vlan10.
  void redOnVlan10() {
    vrfIs("red", Ip::VrfState::active, "ns-red");
    intfIs("Vlan10", "vlan10");
  }
  // Forgets the command lines and trace lines so far.
  static void fresh(TraceCapture& traces) {
    FakeSystem::reset();
    traces.clear();
  }

  const std::string inRed = "ip netns exec ns-red ";
  const Dravo::IntfId vlan10{"Vlan10"};
  const Dravo::IntfId vlan20{"Vlan20"};
};

}  // namespace Routing::Fhrp
