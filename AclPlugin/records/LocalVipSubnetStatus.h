// Routing::Fhrp::LocalVipSubnetStatus: the plug-in's memory of one
// (interface, subnet) pair that holds IPv4 virtual IPs and has an arptables
// rule: the device, VRF and namespace of that rule, the virtual IPs in the
// subnet, and the source IP and virtual MAC the current rule rewrites to.
// Owned by the state machine's localVipSubnet collection
// (LocalVipSubnetCollection.h); never published.
//
// Mutators notify only on a real change, by the Kiv::Entity delivery rules; a
// notifiee's exception reaches its handler with the attribute's id.
#pragma once

#include "AclPlugin/keys/IntfSubnetPair.h"
#include "platform/dravo/EthAddr.h"
#include "platform/dravo/IpGenAddr.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/Entity.h"
#include "platform/kiv/HashMap.h"
#include "platform/routing/VrfName.h"

namespace Routing::Fhrp {

class LocalVipSubnetStatus : public Kiv::Entity {
 public:
  static constexpr Kiv::AttrId intfSubnetAttrId = 258;
  static constexpr Kiv::AttrId intfDevNameAttrId = 259;
  static constexpr Kiv::AttrId vrfNameAttrId = 260;
  static constexpr Kiv::AttrId netNsAttrId = 261;
  static constexpr Kiv::AttrId vmacAttrId = 262;
  static constexpr Kiv::AttrId srcIpAttrId = 263;
  static constexpr Kiv::AttrId ipAddrsAttrId = 264;
  using IpAddrsMap = Kiv::HashMap<Dravo::IpGenAddr, bool>;
  using IpAddrsIterator = IpAddrsMap::Iterator;
  class NotifieeConst;

  // Made only by the owning collection (newLocalVipSubnet), with an empty
  // name, vmac 00:00:00:00:00:00, srcIp unset and no addresses.
  LocalVipSubnetStatus(const IntfSubnetPair& intfSubnet, Kiv::String8 intfDevName,
                       L3::VrfName vrfName, Dravo::NamespaceName netNs)
      : intfSubnet_(intfSubnet),
        intfDevName_(std::move(intfDevName)),
        vrfName_(std::move(vrfName)),
        netNs_(std::move(netNs)) {}

  const char* fwkTypeName() const override { return "Routing::Fhrp::LocalVipSubnetStatus"; }
  Kiv::String8 attributeString(Kiv::AttrId id) const override;

  const IntfSubnetPair& intfSubnet() const { return intfSubnet_; }
  const Kiv::String8& intfDevName() const { return intfDevName_; }
  const L3::VrfName& vrfName() const { return vrfName_; }
  const Dravo::NamespaceName& netNs() const { return netNs_; }
  const Dravo::EthAddr& vmac() const { return vmac_; }
  const Dravo::IpGenAddr& srcIp() const { return srcIp_; }
  // The flag stored for addr; false when absent.
  bool ipAddrs(const Dravo::IpGenAddr& addr) const;
  IpAddrsIterator ipAddrsIterator() const { return ipAddrs_.iterator(); }
  std::size_t ipAddrsSize() const { return ipAddrs_.size(); }

  void vmacIs(const Dravo::EthAddr& vmac);
  void srcIpIs(const Dravo::IpGenAddr& srcIp);
  // Inserts or replaces; notifies unless the same flag was already stored.
  void ipAddrsIs(const Dravo::IpGenAddr& addr, bool flag);
  // Stores the entry without notifying (ipAddrsIs notifies for it).
  bool& newIpAddrs(const Dravo::IpGenAddr& addr, bool flag);
  // Both return the removed flag, false when nothing was removed.
  bool ipAddrsDel(const Dravo::IpGenAddr& addr);
  bool ipAddrsDel(IpAddrsIterator& it);
  void ipAddrsDelAll();

 private:
  void ipAddrsNotify(const Dravo::IpGenAddr& addr) const;

  const IntfSubnetPair intfSubnet_;
  const Kiv::String8 intfDevName_;
  const L3::VrfName vrfName_;
  const Dravo::NamespaceName netNs_;
  Dravo::EthAddr vmac_;
  Dravo::IpGenAddr srcIp_;
  IpAddrsMap ipAddrs_;
};

class LocalVipSubnetStatus::NotifieeConst : public Kiv::NotifieeConstOf<LocalVipSubnetStatus> {
 public:
  virtual void onIpAddrs(const Dravo::IpGenAddr&) {}
  virtual void onIpAddrs() {}
  virtual void onIpAddrskivImmediate() {}
  virtual void onSrcIp() {}
  virtual void onVmac() {}
};

}  // namespace Routing::Fhrp
