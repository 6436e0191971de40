#include "platform/routing/VrfName.h"

#include "platform/kiv/Exception.h"

namespace L3 {

const VrfName DEFAULT_VRF("default");

VrfName::VrfName(std::string_view name) : name_(name) {
  if (name.size() > maxBytes) throw Kiv::RangeException("VrfName::bytes > 100 not allowed");
}

}  // namespace L3
