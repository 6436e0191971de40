// Dravo::IntfId: the switch's name of an interface ("Ethernet1", "Vlan10"),
// not the kernel's device name. Ordered and hashed by its text.
#pragma once

#include <ostream>
#include <string_view>

#include "platform/kiv/String8.h"

namespace Dravo {

class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(std::string_view name) : name_(name) {}

  const Kiv::String8& stringValue() const { return name_; }
  std::uint32_t hash() const { return name_.hash(); }

  friend auto operator<=>(const IntfId&, const IntfId&) = default;

 private:
  Kiv::String8 name_;
};

inline std::ostream& operator<<(std::ostream& os, const IntfId& i) {
  return os << i.stringValue();
}
inline std::uint32_t kivHash(const IntfId& i) {
  return Kiv::bitReverse(i.hash());
}

}  // namespace Dravo
