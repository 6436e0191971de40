// Dravo::EthAddr: a MAC address, written as six colon-separated two-digit
// lower-case hex bytes ("02:1c:73:00:00:99"), the form arptables takes.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "platform/kiv/String8.h"

namespace Dravo {

class EthAddr {
 public:
  using Bytes = std::array<std::uint8_t, 6>;
  EthAddr() = default;
  explicit EthAddr(const Bytes& b) : bytes_(b) {}
  // Six hex bytes separated by ':'; "" gives 00:00:00:00:00:00.
  explicit EthAddr(std::string_view text);

  const Bytes& bytes() const { return bytes_; }
  bool isZero() const { return bytes_ == Bytes{}; }
  Kiv::String8 stringValue() const;
  std::uint32_t hash() const;

  friend auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  Bytes bytes_{};
};

inline std::ostream& operator<<(std::ostream& os, const EthAddr& e) {
  return os << e.stringValue();
}

}  // namespace Dravo
