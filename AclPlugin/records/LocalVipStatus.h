// Routing::Fhrp::LocalVipStatus: the plug-in's memory of one virtual IP whose
// packet-filter rules it installed: the namespace the rules went into and,
// per interface, the kernel device name written into them. The delete paths
// read only this record, so they remove exactly what was added even after the
// input has changed or vanished. Owned by the state machine's localVip
// collection (LocalVipCollection.h); never published.
//
// Mutators notify only on a real change, by the Kiv::Entity delivery rules; a
// notifiee's exception reaches its handler with intfIdSetAttrId.
#pragma once

#include "platform/dravo/IntfId.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/Entity.h"
#include "platform/kiv/HashMap.h"
#include "platform/routing/VrfIpPair.h"

namespace Routing::Fhrp {

class LocalVipStatus : public Kiv::Entity {
 public:
  static constexpr Kiv::AttrId vrfIpAttrId = 258;
  static constexpr Kiv::AttrId netNsAttrId = 259;
  static constexpr Kiv::AttrId intfIdSetAttrId = 260;
  using IntfIdSetMap = Kiv::HashMap<Dravo::IntfId, Kiv::String8>;
  using IntfIdSetIterator = IntfIdSetMap::Iterator;
  class NotifieeConst;

  // Made only by the owning collection (newLocalVip), with an empty name.
  LocalVipStatus(const VrfIpPair& vrfIp, Dravo::NamespaceName netNs)
      : vrfIp_(vrfIp), netNs_(std::move(netNs)) {}

  const char* fwkTypeName() const override { return "Routing::Fhrp::LocalVipStatus"; }
  Kiv::String8 attributeString(Kiv::AttrId id) const override;

  const VrfIpPair& vrfIp() const { return vrfIp_; }
  const Dravo::NamespaceName& netNs() const { return netNs_; }
  // The device name installed for intfId; empty when the interface is absent.
  Kiv::String8 intfIdSet(const Dravo::IntfId& intfId) const;
  bool intfIdSetHas(const Dravo::IntfId& intfId) const { return intfIdSet_.contains(intfId); }
  IntfIdSetIterator intfIdSetIterator() const { return intfIdSet_.iterator(); }
  std::size_t intfIdSetSize() const { return intfIdSet_.size(); }

  // Inserts or replaces; notifies unless the same name was already stored.
  void intfIdSetIs(const Dravo::IntfId& intfId, Kiv::String8 devName);
  // Stores the entry without notifying (intfIdSetIs notifies for it).
  const Kiv::String8& newIntfIdSet(const Dravo::IntfId& intfId, Kiv::String8 devName);
  void intfIdSetDel(const Dravo::IntfId& intfId);
  // Removes the entry under it and returns its device name; empty when it
  // stands on nothing. Safe while walking: ++it goes on after the entry.
  Kiv::String8 intfIdSetDel(IntfIdSetIterator& it);
  void intfIdSetDelAll();

 private:
  void intfIdSetNotify(const Dravo::IntfId& intfId) const;

  const VrfIpPair vrfIp_;
  const Dravo::NamespaceName netNs_;
  IntfIdSetMap intfIdSet_;
};

class LocalVipStatus::NotifieeConst : public Kiv::NotifieeConstOf<LocalVipStatus> {
 public:
  virtual void onIntfIdSet(Dravo::IntfId) {}
  virtual void onIntfIdSet() {}
  virtual void onIntfIdSetkivImmediate() {}
};

}  // namespace Routing::Fhrp
