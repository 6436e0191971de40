// The virtual router MACs: lumoVirtualMac (the virtual-router feature's,
// written into ARP rules) and vrrpVirtualMac. Each mutator notifies only on
// a real change.
#pragma once

#include "platform/dravo/EthAddr.h"
#include "platform/kiv/Entity.h"

namespace Routing::Fhrp {

class VirtualRouterMacStatus : public Kiv::Entity {
 public:
  static constexpr Kiv::AttrId lumoVirtualMacAttrId = 258;
  static constexpr Kiv::AttrId vrrpVirtualMacAttrId = 259;

  explicit VirtualRouterMacStatus(Kiv::Name name = Kiv::Name()) : Kiv::Entity(std::move(name)) {}
  const char* fwkTypeName() const override { return "Routing::Fhrp::VirtualRouterMacStatus"; }

  const Dravo::EthAddr& lumoVirtualMac() const { return lumoVirtualMac_; }
  const Dravo::EthAddr& vrrpVirtualMac() const { return vrrpVirtualMac_; }

  class NotifieeConst : public Kiv::NotifieeConstOf<VirtualRouterMacStatus> {
   public:
    virtual void onLumoVirtualMac() {}
    virtual void onVrrpVirtualMac() {}
  };

  void lumoVirtualMacIs(const Dravo::EthAddr& mac) {
    if (mac == lumoVirtualMac_) return;
    lumoVirtualMac_ = mac;
    notify<NotifieeConst>(lumoVirtualMacAttrId, [](NotifieeConst& n) { n.onLumoVirtualMac(); });
  }
  void vrrpVirtualMacIs(const Dravo::EthAddr& mac) {
    if (mac == vrrpVirtualMac_) return;
    vrrpVirtualMac_ = mac;
    notify<NotifieeConst>(vrrpVirtualMacAttrId, [](NotifieeConst& n) { n.onVrrpVirtualMac(); });
  }

 private:
  Dravo::EthAddr lumoVirtualMac_;
  Dravo::EthAddr vrrpVirtualMac_;
};

}  // namespace Routing::Fhrp
