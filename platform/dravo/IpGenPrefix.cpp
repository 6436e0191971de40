#include "platform/dravo/IpGenPrefix.h"

#include <charconv>
#include <string>

#include "platform/kiv/Exception.h"

namespace Dravo {

namespace {

// Splits "addr/len"; without a slash the length is the address width.
void parseWithLength(std::string_view text, IpGenAddr& addr, unsigned& len, const char* what) {
  std::size_t slash = text.find('/');
  addr = IpGenAddr(text.substr(0, slash));
  if (slash == std::string_view::npos) {
    len = addr.width();
    return;
  }
  std::string_view l = text.substr(slash + 1);
  auto [p, ec] = std::from_chars(l.data(), l.data() + l.size(), len);
  if (l.empty() || ec != std::errc() || p != l.data() + l.size() || addr.width() == 0 ||
      len > addr.width())
    throw Kiv::RangeException(std::string("invalid ") + what + " \"" + std::string(text) + "\"");
}

IpGenAddr masked(const IpGenAddr& a, unsigned length) {
  Ip6Addr::Bytes b = a.bytes();
  for (unsigned bit = length; bit < a.width(); ++bit)
    b[bit / 8] &= static_cast<std::uint8_t>(~(0x80u >> (bit % 8)));
  if (a.isV4())
    return IpGenAddr(IpAddr((std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) |
                            (std::uint32_t(b[2]) << 8) | std::uint32_t(b[3])));
  if (a.isV6()) return IpGenAddr(Ip6Addr(b));
  return a;
}

}  // namespace

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, unsigned length) : length_(length) {
  if (length > addr.width())
    throw Kiv::RangeException("prefix length " + std::to_string(length) + " too long for " +
                              addr.stringValue().stdString());
  addr_ = masked(addr, length);
}

IpGenPrefix::IpGenPrefix(std::string_view text) {
  if (text.empty()) return;
  IpGenAddr a;
  parseWithLength(text, a, length_, "IP prefix");
  addr_ = masked(a, length_);
}

bool IpGenPrefix::contains(const IpGenAddr& a) const {
  return a.family() == addr_.family() && masked(a, length_) == addr_;
}

Kiv::String8 IpGenPrefix::stringValue() const {
  if (addr_.family() == IpGenAddr::unset) return Kiv::String8();
  return addr_.stringValue() + "/" + std::to_string(length_).c_str();
}

IpGenAddrWithMask::IpGenAddrWithMask(const IpGenAddr& addr, unsigned maskLen)
    : addr_(addr), maskLen_(maskLen) {
  if (maskLen > addr.width())
    throw Kiv::RangeException("mask length " + std::to_string(maskLen) + " too long for " +
                              addr.stringValue().stdString());
}

IpGenAddrWithMask::IpGenAddrWithMask(std::string_view text) {
  if (text.empty()) return;
  parseWithLength(text, addr_, maskLen_, "IP address with mask");
}

Kiv::String8 IpGenAddrWithMask::stringValue() const {
  if (addr_.family() == IpGenAddr::unset) return Kiv::String8();
  return addr_.stringValue() + "/" + std::to_string(maskLen_).c_str();
}

}  // namespace Dravo
