// Local VRF status as the VRF agent publishes it: for each VRF its state and
// the network namespace it lives in. AllVrfStatusLocal notifies onVrf(name)
// when a VRF appears, changes or goes, and onVrfkivImmediate() when the whole
// collection is replaced.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/Entity.h"
#include "platform/kiv/HashMap.h"
#include "platform/routing/VrfName.h"

namespace Ip {

enum class VrfState : std::uint8_t {
  inactive = 0,
  active = 1,
  deleting = 2,  // the namespace is being removed and must not be used
};

class VrfStatusLocal : public Kiv::Entity {
 public:
  VrfStatusLocal(const L3::VrfName& name, VrfState state, Dravo::NamespaceName netNs)
      : name_(name), state_(state), netNs_(std::move(netNs)) {}
  const char* fwkTypeName() const override { return "Ip::VrfStatusLocal"; }
  const L3::VrfName& vrfName() const { return name_; }
  VrfState state() const { return state_; }
  const Dravo::NamespaceName& netNs() const { return netNs_; }

 private:
  friend class AllVrfStatusLocal;
  L3::VrfName name_;
  VrfState state_;
  Dravo::NamespaceName netNs_;
};

// One VRF's published values, for replacing the whole collection.
struct VrfStatusValue {
  L3::VrfName name;
  VrfState state;
  Dravo::NamespaceName netNs;
};

class AllVrfStatusLocal : public Kiv::Entity {
 public:
  using VrfMap = Kiv::HashMap<L3::VrfName, Kiv::Ptr<VrfStatusLocal>>;
  static constexpr Kiv::AttrId vrfAttrId = 258;

  explicit AllVrfStatusLocal(Kiv::Name name = Kiv::Name()) : Kiv::Entity(std::move(name)) {}
  const char* fwkTypeName() const override { return "Ip::AllVrfStatusLocal"; }

  Kiv::Ptr<const VrfStatusLocal> vrf(const L3::VrfName& name) const {
    const Kiv::Ptr<VrfStatusLocal>* p = vrf_.find(name);
    return p ? Kiv::Ptr<const VrfStatusLocal>(*p) : nullptr;
  }
  VrfMap::Iterator vrfIterator() const { return vrf_.iterator(); }
  std::size_t vrfSize() const { return vrf_.size(); }

  class NotifieeConst : public Kiv::NotifieeConstOf<AllVrfStatusLocal> {
   public:
    virtual void onVrf(const L3::VrfName&) {}
    virtual void onVrfkivImmediate() {}
  };

  void vrfIs(const L3::VrfName& name, VrfState state, const Dravo::NamespaceName& netNs);
  void vrfDel(const L3::VrfName& name);
  // Replaces the whole collection; one kivImmediate notification if it differs.
  void vrfIs(const std::vector<VrfStatusValue>& all);

 private:
  VrfMap vrf_;
};

}  // namespace Ip
