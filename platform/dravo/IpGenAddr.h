// Dravo::IpGenAddr: an IPv4 or IPv6 address, or the unset address. Family
// values: 0 unset, 1 IPv4, 2 IPv6. Order: family, then bytes.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "platform/dravo/IpAddr.h"

namespace Dravo {

class IpGenAddr {
 public:
  enum Family : std::uint8_t { unset = 0, ipv4 = 1, ipv6 = 2 };

  IpGenAddr() = default;
  IpGenAddr(IpAddr a);
  IpGenAddr(const Ip6Addr& a) : family_(ipv6), bytes_(a.bytes()) {}
  // "" gives the unset address; anything else must be an address.
  explicit IpGenAddr(std::string_view text);

  // Initialise-from-text: takes an address, or an address followed by
  // "/length" (the length is not part of an address and is dropped). On a
  // text that is neither it returns false and leaves the value as it was.
  bool stringValueIs(std::string_view text);

  Family family() const { return family_; }
  bool isV4() const { return family_ == ipv4; }
  bool isV6() const { return family_ == ipv6; }
  IpAddr v4Addr() const;
  Ip6Addr v6Addr() const { return Ip6Addr(bytes_); }
  const Ip6Addr::Bytes& bytes() const { return bytes_; }
  // Address width in bits: 32, 128, or 0 when unset.
  unsigned width() const { return family_ == ipv4 ? 32 : family_ == ipv6 ? 128 : 0; }

  Kiv::String8 stringValue() const;
  std::uint32_t hash() const;

  friend auto operator<=>(const IpGenAddr&, const IpGenAddr&) = default;

 private:
  Family family_ = unset;
  Ip6Addr::Bytes bytes_{};  // IPv4 in the first four bytes, network order
};

inline std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
  return os << a.stringValue();
}
inline std::uint32_t kivHash(const IpGenAddr& a) {
  return Kiv::bitReverse(a.hash());
}

}  // namespace Dravo
