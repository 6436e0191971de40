// Routing::Fhrp::IntfSubnetPair: an (interface, subnet) pair, the key of the
// plug-in's per-subnet records. A regular value: copy, compare (interface,
// then subnet), hash (stable from run to run) and text form
//   Value('Routing::Fhrp::IntfSubnetPair', ** {'intfId': 'Vlan10', 'subnet': '10.0.0.0/24'})
// Parsing throws Kiv::RangeException and nothing else.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/dravo/IntfId.h"
#include "platform/dravo/IpGenPrefix.h"
#include "platform/kiv/Strep.h"

namespace Routing::Fhrp {

class IntfSubnetPair {
 public:
  IntfSubnetPair() = default;
  IntfSubnetPair(Dravo::IntfId intfId, Dravo::IpGenPrefix subnet)
      : intfId_(std::move(intfId)), subnet_(subnet) {}
  // Reads the text form from pos (attributes in any order, missing ones
  // defaulted, a repeated one overriding) and leaves pos behind it.
  IntfSubnetPair(Kiv::StrepIt& pos, Kiv::StrepIt end);

  const Dravo::IntfId& intfId() const { return intfId_; }
  const Dravo::IpGenPrefix& subnet() const { return subnet_; }

  bool operator==(const IntfSubnetPair& o) const;
  bool operator!=(const IntfSubnetPair& o) const { return !(*this == o); }
  bool operator<(const IntfSubnetPair& o) const;
  bool operator<=(const IntfSubnetPair& o) const { return !(o < *this); }
  bool operator>(const IntfSubnetPair& o) const { return o < *this; }
  bool operator>=(const IntfSubnetPair& o) const { return !(*this < o); }
  // True for the default value.
  bool operator!() const { return *this == IntfSubnetPair(); }

  // Already bit-reversed: the collections take their bucket from its top bits.
  std::uint32_t hash() const;

 private:
  Dravo::IntfId intfId_;
  Dravo::IpGenPrefix subnet_;
};

Kiv::String8 valueToStrep(const IntfSubnetPair& v);
inline std::ostream& operator<<(std::ostream& os, const IntfSubnetPair& v) {
  return os << valueToStrep(v);
}
inline std::uint32_t kivHash(const IntfSubnetPair& v) {
  return v.hash();
}

}  // namespace Routing::Fhrp
