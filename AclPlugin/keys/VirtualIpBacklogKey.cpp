#include "AclPlugin/keys/VirtualIpBacklogKey.h"

#include "platform/kiv/Hash.h"

namespace Routing::Fhrp {

VirtualIpBacklogKey::VirtualIpBacklogKey(Kiv::StrepIt& pos, Kiv::StrepIt end) {
  Kiv::deserializeComposite(pos, end, " 'Routing::Fhrp::VirtualIpBacklogKey'",
                            "VirtualIpBacklogKey", [&](const Kiv::String8& name) {
                              if (name == "vrfIpWithMask") {
                                try {
                                  Kiv::deserializeAttr(pos, end, vrfIpWithMask_);
                                } catch (const Kiv::RangeException& e) {
                                  Kiv::rethrowFromDeserializeAttr("vrfIpWithMask", e);
                                }
                              } else if (name == "intfId") {
                                Kiv::deserializeAttr(pos, end, intfId_);
                              } else {
                                Kiv::throwNoSuchAttribute("VirtualIpBacklogKey", name);
                              }
                            });
}

bool VirtualIpBacklogKey::operator==(const VirtualIpBacklogKey& o) const {
  return vrfIpWithMask_ == o.vrfIpWithMask_ && intfId_ == o.intfId_;
}

bool VirtualIpBacklogKey::operator<(const VirtualIpBacklogKey& o) const {
  if (vrfIpWithMask_ < o.vrfIpWithMask_) return true;
  return vrfIpWithMask_ == o.vrfIpWithMask_ && intfId_ < o.intfId_;
}

std::uint32_t VirtualIpBacklogKey::hash() const {
  return Kiv::bitReverse(vrfIpWithMask_.vrfName().hash() ^ vrfIpWithMask_.ipWithMask().hash() ^
                         intfId_.hash());
}

Kiv::String8 valueToStrep(const VirtualIpBacklogKey& v) {
  return "Value('Routing::Fhrp::VirtualIpBacklogKey', ** {'vrfIpWithMask': " +
         valueToStrep(v.vrfIpWithMask()) + ", 'intfId': " + Kiv::valueToStrep(v.intfId()) + "})";
}

}  // namespace Routing::Fhrp
