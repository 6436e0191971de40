#include "platform/dravo/IpAddr.h"

#include <arpa/inet.h>

#include <cstring>
#include <string>

#include "platform/kiv/Exception.h"

namespace Dravo {

bool parseIpv4(std::string_view text, std::uint32_t& out) {
  // inet_pton alone accepts only the strict dotted quad, which is what we want.
  std::string s(text);
  in_addr a{};
  if (s.empty() || ::inet_pton(AF_INET, s.c_str(), &a) != 1) return false;
  out = ntohl(a.s_addr);
  return true;
}

bool parseIpv6(std::string_view text, Ip6Addr::Bytes& out) {
  std::string s(text);
  in6_addr a{};
  if (s.empty() || ::inet_pton(AF_INET6, s.c_str(), &a) != 1) return false;
  std::memcpy(out.data(), &a, 16);
  return true;
}

IpAddr::IpAddr(std::string_view text) {
  if (!parseIpv4(text, value_))
    throw Kiv::RangeException("invalid IPv4 address \"" + std::string(text) + "\"");
}

Kiv::String8 IpAddr::stringValue() const {
  in_addr a{htonl(value_)};
  char buf[INET_ADDRSTRLEN];
  ::inet_ntop(AF_INET, &a, buf, sizeof buf);
  return Kiv::String8(buf);
}

Ip6Addr::Ip6Addr(std::string_view text) {
  if (!parseIpv6(text, bytes_))
    throw Kiv::RangeException("invalid IPv6 address \"" + std::string(text) + "\"");
}

Kiv::String8 Ip6Addr::stringValue() const {
  in6_addr a{};
  std::memcpy(&a, bytes_.data(), 16);
  char buf[INET6_ADDRSTRLEN];
  ::inet_ntop(AF_INET6, &a, buf, sizeof buf);
  return Kiv::String8(buf);
}

std::uint32_t Ip6Addr::hash() const {
  return Kiv::hashBytes(std::string_view(reinterpret_cast<const char*>(bytes_.data()), 16));
}

}  // namespace Dravo
