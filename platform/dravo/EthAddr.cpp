#include "platform/dravo/EthAddr.h"

#include <cstdio>
#include <string>

#include "platform/kiv/Exception.h"
#include "platform/kiv/Hash.h"

namespace Dravo {

namespace {
int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

EthAddr::EthAddr(std::string_view text) {
  if (text.empty()) return;
  auto bad = [&] {
    return Kiv::RangeException("invalid MAC address \"" + std::string(text) +
                               "\" (six hex bytes separated by ':')");
  };
  std::size_t pos = 0;
  for (std::size_t i = 0; i < 6; ++i) {
    if (i > 0) {
      if (pos >= text.size() || text[pos] != ':') throw bad();
      ++pos;
    }
    int hi = pos < text.size() ? hexDigit(text[pos]) : -1;
    int lo = pos + 1 < text.size() ? hexDigit(text[pos + 1]) : -1;
    if (hi < 0 || lo < 0) throw bad();
    bytes_[i] = static_cast<std::uint8_t>(hi * 16 + lo);
    pos += 2;
  }
  if (pos != text.size()) throw bad();
}

Kiv::String8 EthAddr::stringValue() const {
  char buf[18];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2],
                bytes_[3], bytes_[4], bytes_[5]);
  return Kiv::String8(buf);
}

std::uint32_t EthAddr::hash() const {
  return Kiv::hashBytes(std::string_view(reinterpret_cast<const char*>(bytes_.data()), 6));
}

}  // namespace Dravo
