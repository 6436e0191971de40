// A running state machine driven tick by tick, with helpers to publish
// virtual IPs and to write the command lines a test expects.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/IptablesRules.h"
#include "tests/AclPlugin/sm/SmFixture.h"

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

// The lines of a virtual IP's ACCEPT and DROP rules on one device, and of a
// subnet's ARP rule, in namespace ns ("": the default one), as added or as
// dropped. They come from the plug-in's builders, whose text the firewall
// tests pin in full.
inline Lines mangleLines(const std::string& ns, bool add, const std::string& ip,
                         const std::string& dev) {
  using namespace Firewall;
  const Family family = ip.find(':') == std::string::npos ? Family::v4 : Family::v6;
  Lines out;
  for (Target target : {Target::accept, Target::drop})
    out.push_back(iptablesRuleLine(Dravo::NamespaceName(ns), family, add ? Verb::add : Verb::drop,
                                   target, ip, dev)
                      .stdString());
  return out;
}
inline std::string arpLine(const std::string& ns, bool add, const std::string& subnet,
                           const std::string& dev, const std::string& mac, const std::string& src) {
  using namespace Firewall;
  return arptablesRuleLine(Dravo::NamespaceName(ns), add ? Verb::add : Verb::drop,
                           Dravo::IpGenPrefix(subnet.c_str()), Dravo::IpGenAddr(src.c_str()), dev,
                           Dravo::EthAddr(mac.c_str()))
      .stdString();
}
inline Lines concat(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
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

  const std::string inRed = "ns-red";
  const Dravo::IntfId vlan10{"Vlan10"};
  const Dravo::IntfId vlan20{"Vlan20"};
};

}  // namespace Routing::Fhrp
