// A running state machine driven tick by tick, with helpers to publish
// virtual IPs and to write the command lines a test expects.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "tests/AclPlugin/sm/SmFixture.h"

namespace Routing::Fhrp {

inline VrfIpWithMaskPair vipKey(const char* vrf, const char* addrWithMask) {
  return VrfIpWithMaskPair(L3::VrfName(vrf), Dravo::IpGenAddrWithMask(addrWithMask));
}
inline VrfIpPair vrfIp(const char* vrf, const char* addr) {
  return VrfIpPair(L3::VrfName(vrf), Dravo::IpGenAddr(addr));
}
inline IntfSubnetPair intfSubnet(const char* intf, const char* subnet) {
  return IntfSubnetPair(Dravo::IntfId(intf), Dravo::IpGenPrefix(subnet));
}

// The ACCEPT and DROP mangle lines of one virtual IP on one device, as added
// or as dropped. `prefix` is "" or "ip netns exec <ns> ".
inline std::vector<std::string> mangleLines(const std::string& prefix, bool add,
                                            const std::string& ip, const std::string& dev) {
  const bool v6 = ip.find(':') != std::string::npos;
  const std::string head = prefix + (v6 ? "ip6tables" : "iptables") + " -t mangle " +
                           (add ? "-A" : "-D") + " PREROUTING -p ";
  const std::string match = " -i " + dev + " -m comment --comment \"KESTEL ADDED\" -j ";
  const std::string tail = add ? "" : " 2>/dev/null";
  return {head + (v6 ? "ipv6-icmp" : "icmp") + " -d " + ip + match + "ACCEPT" + tail,
          head + "all -d " + ip + match + "DROP" + tail};
}

inline std::string arpLine(const std::string& prefix, bool add, const std::string& subnet,
                           const std::string& dev, const std::string& mac, const std::string& src) {
  return prefix + "arptables " + (add ? "-A" : "-D") + " OUT -d " + subnet + " -o " + dev +
         " -a 6 --arpop Request -j mangle --mangle-hw-s " + mac + " --mangle-ip-s " + src +
         (add ? "" : " 2>/dev/null");
}

inline std::vector<std::string> concat(std::vector<std::string> a,
                                       const std::vector<std::string>& b) {
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

  const Dravo::IntfId vlan10{"Vlan10"};
  const Dravo::IntfId vlan20{"Vlan20"};
};

}  // namespace Routing::Fhrp
