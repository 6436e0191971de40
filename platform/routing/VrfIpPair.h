// The routing library's virtual-IP keys: VrfIpPair (VRF and address) and
// VrfIpWithMaskPair (VRF and address with mask). Regular values with a
// stable order (VRF name, then address), hash and text form:
//   Value('Routing::Fhrp::VrfIpPair', ** {'vrfName': 'red', 'ipAddr': '10.0.0.1'})
//   Value('Routing::Fhrp::VrfIpWithMaskPair', ** {'vrfName': 'red', 'ipWithMask': '10.0.0.1/24'})
#pragma once

#include <ostream>

#include "platform/dravo/IpGenPrefix.h"
#include "platform/kiv/Strep.h"
#include "platform/routing/VrfName.h"

namespace Routing::Fhrp {

class VrfIpPair {
 public:
  VrfIpPair() = default;
  VrfIpPair(L3::VrfName vrfName, Dravo::IpGenAddr ipAddr)
      : vrfName_(std::move(vrfName)), ipAddr_(ipAddr) {}
  VrfIpPair(Kiv::StrepIt& pos, Kiv::StrepIt end);

  L3::VrfName vrfName() const { return vrfName_; }
  const Dravo::IpGenAddr& ipAddr() const { return ipAddr_; }
  std::uint32_t hash() const { return vrfName_.hash() ^ ipAddr_.hash(); }
  bool operator!() const { return *this == VrfIpPair(); }

  friend auto operator<=>(const VrfIpPair&, const VrfIpPair&) = default;

 private:
  L3::VrfName vrfName_;
  Dravo::IpGenAddr ipAddr_;
};

class VrfIpWithMaskPair {
 public:
  VrfIpWithMaskPair() = default;
  VrfIpWithMaskPair(L3::VrfName vrfName, Dravo::IpGenAddrWithMask ipWithMask)
      : vrfName_(std::move(vrfName)), ipWithMask_(ipWithMask) {}
  VrfIpWithMaskPair(Kiv::StrepIt& pos, Kiv::StrepIt end);

  L3::VrfName vrfName() const { return vrfName_; }
  const Dravo::IpGenAddrWithMask& ipWithMask() const { return ipWithMask_; }
  // The key of the same virtual IP without its mask.
  VrfIpPair vrfIp() const { return VrfIpPair(vrfName_, ipWithMask_.address()); }
  std::uint32_t hash() const { return vrfName_.hash() ^ ipWithMask_.hash(); }
  bool operator!() const { return *this == VrfIpWithMaskPair(); }

  friend auto operator<=>(const VrfIpWithMaskPair&, const VrfIpWithMaskPair&) = default;

 private:
  L3::VrfName vrfName_;
  Dravo::IpGenAddrWithMask ipWithMask_;
};

Kiv::String8 valueToStrep(const VrfIpPair& v);
Kiv::String8 valueToStrep(const VrfIpWithMaskPair& v);

inline std::ostream& operator<<(std::ostream& os, const VrfIpPair& v) {
  return os << valueToStrep(v);
}
inline std::ostream& operator<<(std::ostream& os, const VrfIpWithMaskPair& v) {
  return os << valueToStrep(v);
}
inline std::uint32_t kivHash(const VrfIpPair& v) {
  return Kiv::bitReverse(v.hash());
}
inline std::uint32_t kivHash(const VrfIpWithMaskPair& v) {
  return Kiv::bitReverse(v.hash());
}

}  // namespace Routing::Fhrp
