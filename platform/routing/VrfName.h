// L3::VrfName: the name of a VRF, at most 100 bytes. "default" names the
// default VRF.
#pragma once

#include <ostream>
#include <string_view>

#include "platform/kiv/String8.h"

namespace L3 {

class VrfName {
 public:
  static constexpr std::size_t maxBytes = 100;

  VrfName() = default;
  // Throws Kiv::RangeException "VrfName::bytes > 100 not allowed".
  explicit VrfName(std::string_view name);
  explicit VrfName(const char* name) : VrfName(std::string_view(name)) {}
  explicit VrfName(const Kiv::String8& name) : VrfName(name.view()) {}

  const Kiv::String8& stringValue() const { return name_; }
  bool isDefault() const { return name_ == "default"; }
  std::uint32_t hash() const { return name_.hash(); }

  friend auto operator<=>(const VrfName&, const VrfName&) = default;

 private:
  Kiv::String8 name_;
};

extern const VrfName DEFAULT_VRF;

inline std::ostream& operator<<(std::ostream& os, const VrfName& v) {
  return os << v.stringValue();
}
inline std::uint32_t kivHash(const VrfName& v) {
  return Kiv::bitReverse(v.hash());
}

}  // namespace L3
