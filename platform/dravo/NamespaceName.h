// Dravo::NamespaceName: the name of a Linux network namespace as `ip netns`
// knows it (/run/netns/<name>). DEFAULT_NS, "default", stands for the
// host's own namespace.
#pragma once

#include <ostream>
#include <string_view>

#include "platform/kiv/String8.h"

namespace Dravo {

class NamespaceName {
 public:
  NamespaceName() = default;
  explicit NamespaceName(std::string_view name) : name_(name) {}

  const Kiv::String8& stringValue() const { return name_; }
  bool empty() const { return name_.empty(); }
  std::uint32_t hash() const { return name_.hash(); }

  friend auto operator<=>(const NamespaceName&, const NamespaceName&) = default;

 private:
  Kiv::String8 name_;
};

extern const NamespaceName DEFAULT_NS;

inline std::ostream& operator<<(std::ostream& os, const NamespaceName& n) {
  return os << n.stringValue();
}
inline std::uint32_t kivHash(const NamespaceName& n) {
  return Kiv::bitReverse(n.hash());
}

}  // namespace Dravo
