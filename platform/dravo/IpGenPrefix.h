// Dravo::IpGenPrefix (a subnet: address with its host bits cleared, and a
// length) and Dravo::IpGenAddrWithMask (an address with a mask length, host
// bits kept). Text forms "10.0.0.0/24", "2001:db8::/64"; "" is the default
// (unset) value. Order: address, then length. The hash of both is the
// "prefix base" hash: address hash combined with the length.
#pragma once

#include <ostream>
#include <string_view>

#include "platform/dravo/IpGenAddr.h"

namespace Dravo {

class IpGenPrefix {
 public:
  IpGenPrefix() = default;
  // Clears the host bits; throws Kiv::RangeException when the length exceeds
  // the address width.
  IpGenPrefix(const IpGenAddr& addr, unsigned length);
  explicit IpGenPrefix(std::string_view text);

  const IpGenAddr& address() const { return addr_; }
  unsigned length() const { return length_; }
  bool contains(const IpGenAddr& a) const;

  Kiv::String8 stringValue() const;
  std::uint32_t hash() const { return addr_.hash() ^ Kiv::hashInt(length_); }

  friend auto operator<=>(const IpGenPrefix&, const IpGenPrefix&) = default;

 private:
  IpGenAddr addr_;
  unsigned length_ = 0;
};

struct IpAddrWithMask {
  IpAddr address;
  unsigned maskLen;
};

struct Ip6AddrWithMask {
  Ip6Addr address;
  unsigned maskLen;
};

class IpGenAddrWithMask {
 public:
  IpGenAddrWithMask() = default;
  // The address-only form: the mask covers the whole address (/32, /128).
  explicit IpGenAddrWithMask(const IpGenAddr& addr) : addr_(addr), maskLen_(addr.width()) {}
  IpGenAddrWithMask(const IpGenAddr& addr, unsigned maskLen);
  // "10.0.0.1/24"; an address alone takes the full mask; "" is the default.
  explicit IpGenAddrWithMask(std::string_view text);

  const IpGenAddr& address() const { return addr_; }
  unsigned maskLen() const { return maskLen_; }
  IpAddrWithMask v4AddrWithMask() const { return {addr_.v4Addr(), maskLen_}; }
  Ip6AddrWithMask v6AddrWithMask() const { return {addr_.v6Addr(), maskLen_}; }
  // The subnet the address lies in.
  IpGenPrefix subnet() const { return IpGenPrefix(addr_, maskLen_); }
  // The IPv4 subnet; the default prefix for an address of another family.
  IpGenPrefix v4Subnet() const { return addr_.isV4() ? subnet() : IpGenPrefix(); }

  Kiv::String8 stringValue() const;
  std::uint32_t hash() const { return addr_.hash() ^ Kiv::hashInt(maskLen_); }

  friend auto operator<=>(const IpGenAddrWithMask&, const IpGenAddrWithMask&) = default;

 private:
  IpGenAddr addr_;
  unsigned maskLen_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p) {
  return os << p.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, const IpGenAddrWithMask& a) {
  return os << a.stringValue();
}
inline std::uint32_t kivHash(const IpGenPrefix& p) {
  return Kiv::bitReverse(p.hash());
}
inline std::uint32_t kivHash(const IpGenAddrWithMask& a) {
  return Kiv::bitReverse(a.hash());
}

}  // namespace Dravo
