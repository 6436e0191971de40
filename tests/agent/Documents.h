// State documents shared by the agent's tests.
#pragma once

namespace AgentTest {

// Two interfaces, the VRF red, a virtual MAC, an IPv4 VIP in the default VRF
// and one in red, and an IPv6 VIP in red.
inline const char* const baseDocument = R"({
  "interfaces": {"Vlan10": {"device": "vlan10"}, "Vlan20": {"device": "vlan20"}},
  "vrfs": {"red": {"namespace": "ns-red"}},
  "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"},
  "virtualIps": [{"address": "10.0.0.1/24", "interfaces": ["Vlan10"]},
                 {"vrf": "red", "address": "10.1.0.1/24", "interfaces": ["Vlan20"]}],
  "virtualIps6": [{"vrf": "red", "address": "2001:db8::1", "interfaces": ["Vlan20"]}]
})";

}  // namespace AgentTest
