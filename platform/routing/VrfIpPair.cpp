#include "platform/routing/VrfIpPair.h"

namespace Routing::Fhrp {

VrfIpPair::VrfIpPair(Kiv::StrepIt& pos, Kiv::StrepIt end) {
  Kiv::deserializeComposite(pos, end, " 'Routing::Fhrp::VrfIpPair'", "VrfIpPair",
                            [&](const Kiv::String8& name) {
                              if (name == "vrfName")
                                Kiv::deserializeAttr(pos, end, vrfName_);
                              else if (name == "ipAddr")
                                Kiv::deserializeAttr(pos, end, ipAddr_);
                              else
                                Kiv::throwNoSuchAttribute("VrfIpPair", name);
                            });
}

VrfIpWithMaskPair::VrfIpWithMaskPair(Kiv::StrepIt& pos, Kiv::StrepIt end) {
  Kiv::deserializeComposite(pos, end, " 'Routing::Fhrp::VrfIpWithMaskPair'", "VrfIpWithMaskPair",
                            [&](const Kiv::String8& name) {
                              if (name == "vrfName")
                                Kiv::deserializeAttr(pos, end, vrfName_);
                              else if (name == "ipWithMask")
                                Kiv::deserializeAttr(pos, end, ipWithMask_);
                              else
                                Kiv::throwNoSuchAttribute("VrfIpWithMaskPair", name);
                            });
}

Kiv::String8 valueToStrep(const VrfIpPair& v) {
  return "Value('Routing::Fhrp::VrfIpPair', ** {'vrfName': " + Kiv::valueToStrep(v.vrfName()) +
         ", 'ipAddr': " + Kiv::valueToStrep(v.ipAddr()) + "})";
}

Kiv::String8 valueToStrep(const VrfIpWithMaskPair& v) {
  return "Value('Routing::Fhrp::VrfIpWithMaskPair', ** {'vrfName': " +
         Kiv::valueToStrep(v.vrfName()) + ", 'ipWithMask': " + Kiv::valueToStrep(v.ipWithMask()) +
         "})";
}

}  // namespace Routing::Fhrp
