#include "platform/dravo/IpGenAddr.h"

#include <charconv>
#include <string>

#include "platform/kiv/Exception.h"

namespace Dravo {

IpGenAddr::IpGenAddr(IpAddr a) : family_(ipv4) {
  std::uint32_t v = a.value();
  bytes_[0] = static_cast<std::uint8_t>(v >> 24);
  bytes_[1] = static_cast<std::uint8_t>(v >> 16);
  bytes_[2] = static_cast<std::uint8_t>(v >> 8);
  bytes_[3] = static_cast<std::uint8_t>(v);
}

IpGenAddr::IpGenAddr(std::string_view text) {
  if (text.empty()) return;
  std::uint32_t v4 = 0;
  Ip6Addr::Bytes v6{};
  if (parseIpv4(text, v4))
    *this = IpGenAddr(IpAddr(v4));
  else if (parseIpv6(text, v6))
    *this = IpGenAddr(Ip6Addr(v6));
  else
    throw Kiv::RangeException("invalid IP address \"" + std::string(text) + "\"");
}

namespace {
// A mask length: decimal digits, at most the address width.
bool isLength(std::string_view text, unsigned width) {
  unsigned len = 0;
  auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), len);
  return !text.empty() && ec == std::errc() && p == text.data() + text.size() && len <= width;
}
}  // namespace

bool IpGenAddr::stringValueIs(std::string_view text) {
  const std::size_t slash = text.find('/');
  std::string_view addr = text.substr(0, slash);
  try {
    if (addr.empty()) return false;
    IpGenAddr a(addr);
    if (slash != std::string_view::npos && !isLength(text.substr(slash + 1), a.width()))
      return false;
    *this = a;
    return true;
  } catch (const Kiv::RangeException&) {
    return false;
  }
}

IpAddr IpGenAddr::v4Addr() const {
  return IpAddr((std::uint32_t(bytes_[0]) << 24) | (std::uint32_t(bytes_[1]) << 16) |
                (std::uint32_t(bytes_[2]) << 8) | std::uint32_t(bytes_[3]));
}

Kiv::String8 IpGenAddr::stringValue() const {
  switch (family_) {
    case ipv4:
      return v4Addr().stringValue();
    case ipv6:
      return v6Addr().stringValue();
    default:
      return Kiv::String8();
  }
}

std::uint32_t IpGenAddr::hash() const {
  return Kiv::hashBytes(std::string_view(reinterpret_cast<const char*>(bytes_.data()), 16)) ^
         family_;
}

}  // namespace Dravo
