#include "AclPlugin/keys/IntfSubnetPair.h"

#include "platform/kiv/Hash.h"

namespace Routing::Fhrp {

IntfSubnetPair::IntfSubnetPair(Kiv::StrepIt& pos, Kiv::StrepIt end) {
  Kiv::deserializeComposite(pos, end, " 'Routing::Fhrp::IntfSubnetPair'", "IntfSubnetPair",
                            [&](const Kiv::String8& name) {
                              if (name == "intfId")
                                Kiv::deserializeAttr(pos, end, intfId_);
                              else if (name == "subnet")
                                Kiv::deserializeAttr(pos, end, subnet_);
                              else
                                Kiv::throwNoSuchAttribute("IntfSubnetPair", name);
                            });
}

bool IntfSubnetPair::operator==(const IntfSubnetPair& o) const {
  return intfId_ == o.intfId_ && subnet_ == o.subnet_;
}

bool IntfSubnetPair::operator<(const IntfSubnetPair& o) const {
  if (intfId_ < o.intfId_) return true;
  if (intfId_ != o.intfId_) return false;
  return subnet_ < o.subnet_;
}

std::uint32_t IntfSubnetPair::hash() const {
  return Kiv::bitReverse(intfId_.hash() ^ subnet_.hash());
}

Kiv::String8 valueToStrep(const IntfSubnetPair& v) {
  return "Value('Routing::Fhrp::IntfSubnetPair', ** {'intfId': " + Kiv::valueToStrep(v.intfId()) +
         ", 'subnet': " + Kiv::valueToStrep(v.subnet()) + "})";
}

}  // namespace Routing::Fhrp
