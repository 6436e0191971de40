#include "tests/fuzz/Seeds.h"

#include "AclPlugin/keys/IntfSubnetPair.h"
#include "AclPlugin/keys/VirtualIpBacklogKey.h"

// Streps of a spread of values (IPv4, IPv6, defaults, quotes and escapes,
// 100-byte VRF names).
std::vector<std::string> fuzzSeeds() {
  using namespace Routing::Fhrp;
  using Dravo::IntfId;
  std::vector<std::string> seeds;
  for (const char* intf : {"", "Vlan10", "Ethernet1/2", "it's\\"})
    for (const char* subnet : {"", "10.0.0.0/24", "0.0.0.0/0", "2001:db8::/64", "::/128"})
      seeds.push_back(
          valueToStrep(IntfSubnetPair(IntfId(intf), Dravo::IpGenPrefix(subnet))).stdString());
  const std::string longVrf(L3::VrfName::maxBytes, 'v');
  for (const std::string& vrf :
       {std::string(), std::string("default"), std::string("r'ed"), longVrf})
    for (const char* addr : {"", "10.0.0.1/24", "10.0.0.1", "fe80::1/64"})
      for (const char* intf : {"", "Vlan10"})
        seeds.push_back(
            valueToStrep(VirtualIpBacklogKey(VrfIpWithMaskPair(L3::VrfName(std::string_view(vrf)),
                                                               Dravo::IpGenAddrWithMask(addr)),
                                             IntfId(intf)))
                .stdString());
  seeds.push_back("Value ( 'Routing::Fhrp::IntfSubnetPair' , ** { 'subnet' : '10.1.0.0/16' } ) ");
  return seeds;
}

namespace {
template <class T>
bool takes(const std::string& text) {
  try {
    Kiv::strepToValue<T>(text);
    return true;
  } catch (const Kiv::RangeException&) {
    return false;
  }
}
}  // namespace

bool fuzzTakes(const std::string& text) {
  return takes<Routing::Fhrp::IntfSubnetPair>(text) ||
         takes<Routing::Fhrp::VirtualIpBacklogKey>(text);
}
