// Dravo::IpAddr (IPv4) and Dravo::Ip6Addr (IPv6): regular address values with
// a stable order and hash. Text forms are the usual ones (dotted quad;
// RFC 5952 for IPv6); the text constructors throw Kiv::RangeException.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "platform/kiv/Hash.h"
#include "platform/kiv/String8.h"

namespace Dravo {

class IpAddr {
 public:
  IpAddr() = default;
  explicit IpAddr(std::uint32_t hostOrder) : value_(hostOrder) {}
  explicit IpAddr(std::string_view text);

  std::uint32_t value() const { return value_; }
  Kiv::String8 stringValue() const;
  std::uint32_t hash() const { return Kiv::hashInt(value_); }

  friend auto operator<=>(const IpAddr&, const IpAddr&) = default;

 private:
  std::uint32_t value_ = 0;
};

class Ip6Addr {
 public:
  using Bytes = std::array<std::uint8_t, 16>;
  Ip6Addr() = default;
  explicit Ip6Addr(const Bytes& b) : bytes_(b) {}
  explicit Ip6Addr(std::string_view text);

  const Bytes& bytes() const { return bytes_; }
  Kiv::String8 stringValue() const;
  std::uint32_t hash() const;

  friend auto operator<=>(const Ip6Addr&, const Ip6Addr&) = default;

 private:
  Bytes bytes_{};
};

bool parseIpv4(std::string_view text, std::uint32_t& out);
bool parseIpv6(std::string_view text, Ip6Addr::Bytes& out);

inline std::ostream& operator<<(std::ostream& os, const IpAddr& a) {
  return os << a.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
  return os << a.stringValue();
}
inline std::uint32_t kivHash(const IpAddr& a) {
  return Kiv::bitReverse(a.hash());
}
inline std::uint32_t kivHash(const Ip6Addr& a) {
  return Kiv::bitReverse(a.hash());
}

}  // namespace Dravo
