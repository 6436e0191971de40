// Interface status as the interface agent publishes it: for each interface
// (Dravo::IntfId) its kernel device name. AllIntfStatusDir notifies
// onIntfStatus(id) when an interface appears, changes or goes.
#pragma once

#include "platform/dravo/IntfId.h"
#include "platform/kiv/Entity.h"
#include "platform/kiv/HashMap.h"

namespace Interface {

class IntfStatus : public Kiv::Entity {
 public:
  IntfStatus(const Dravo::IntfId& id, Kiv::String8 deviceName)
      : id_(id), deviceName_(std::move(deviceName)) {}
  const char* fwkTypeName() const override { return "Interface::IntfStatus"; }
  const Dravo::IntfId& intfId() const { return id_; }
  // The kernel's name of the interface ("vlan10"), as packet filters use it.
  const Kiv::String8& deviceName() const { return deviceName_; }

 private:
  friend class AllIntfStatusDir;
  Dravo::IntfId id_;
  Kiv::String8 deviceName_;
};

class AllIntfStatusDir : public Kiv::Entity {
 public:
  using IntfStatusMap = Kiv::HashMap<Dravo::IntfId, Kiv::Ptr<IntfStatus>>;
  static constexpr Kiv::AttrId intfStatusAttrId = 258;

  explicit AllIntfStatusDir(Kiv::Name name = Kiv::Name()) : Kiv::Entity(std::move(name)) {}
  const char* fwkTypeName() const override { return "Interface::AllIntfStatusDir"; }

  Kiv::Ptr<const IntfStatus> intfStatus(const Dravo::IntfId& id) const {
    const Kiv::Ptr<IntfStatus>* p = intfStatus_.find(id);
    return p ? Kiv::Ptr<const IntfStatus>(*p) : nullptr;
  }
  IntfStatusMap::Iterator intfStatusIterator() const { return intfStatus_.iterator(); }
  std::size_t intfStatusSize() const { return intfStatus_.size(); }

  class NotifieeConst : public Kiv::NotifieeConstOf<AllIntfStatusDir> {
   public:
    virtual void onIntfStatus(const Dravo::IntfId&) {}
  };

  void intfStatusIs(const Dravo::IntfId& id, const Kiv::String8& deviceName);
  void intfStatusDel(const Dravo::IntfId& id);

 private:
  void notifyIntfStatus(const Dravo::IntfId& id);
  IntfStatusMap intfStatus_;
};

}  // namespace Interface
