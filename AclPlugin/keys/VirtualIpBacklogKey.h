// Routing::Fhrp::VirtualIpBacklogKey: a (VRF, virtual IP with mask,
// interface) triple, the key of the backlog of deferred installs. A regular
// value: copy, compare (VRF and address first, then interface), hash (stable
// from run to run) and text form
//   Value('Routing::Fhrp::VirtualIpBacklogKey', ** {'vrfIpWithMask': <VrfIpWithMaskPair>,
//         'intfId': 'Vlan10'})
// Parsing throws Kiv::RangeException and nothing else.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/dravo/IntfId.h"
#include "platform/kiv/Strep.h"
#include "platform/routing/VrfIpPair.h"

namespace Routing::Fhrp {

class VirtualIpBacklogKey {
 public:
  VirtualIpBacklogKey() = default;
  VirtualIpBacklogKey(VrfIpWithMaskPair vrfIpWithMask, Dravo::IntfId intfId)
      : vrfIpWithMask_(std::move(vrfIpWithMask)), intfId_(std::move(intfId)) {}
  // Reads the text form from pos (attributes in any order, missing ones
  // defaulted, a repeated one overriding) and leaves pos behind it. An error
  // inside the VRF/address names the attribute "vrfIpWithMask".
  VirtualIpBacklogKey(Kiv::StrepIt& pos, Kiv::StrepIt end);

  const VrfIpWithMaskPair& vrfIpWithMask() const { return vrfIpWithMask_; }
  const Dravo::IntfId& intfId() const { return intfId_; }

  bool operator==(const VirtualIpBacklogKey& o) const;
  bool operator!=(const VirtualIpBacklogKey& o) const { return !(*this == o); }
  bool operator<(const VirtualIpBacklogKey& o) const;
  bool operator<=(const VirtualIpBacklogKey& o) const { return !(o < *this); }
  bool operator>(const VirtualIpBacklogKey& o) const { return o < *this; }
  bool operator>=(const VirtualIpBacklogKey& o) const { return !(*this < o); }
  // True for the default value.
  bool operator!() const { return *this == VirtualIpBacklogKey(); }

  // Already bit-reversed: the collections take their bucket from its top bits.
  std::uint32_t hash() const;

 private:
  VrfIpWithMaskPair vrfIpWithMask_;
  Dravo::IntfId intfId_;
};

Kiv::String8 valueToStrep(const VirtualIpBacklogKey& v);
inline std::ostream& operator<<(std::ostream& os, const VirtualIpBacklogKey& v) {
  return os << valueToStrep(v);
}
inline std::uint32_t kivHash(const VirtualIpBacklogKey& v) {
  return v.hash();
}

}  // namespace Routing::Fhrp
