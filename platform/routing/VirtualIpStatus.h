// The virtual-IP inputs as the FHRP agent publishes them, IPv4 and IPv6:
//
//   VirtualIpStatus  --virtualIp[VrfIpWithMaskPair]-->  VirtualIpIntfStatus
//   VirtualIp6Status --virtualIp[VrfIpPair]---------->  VirtualIp6IntfStatus
//
// An entry carries the namespace of its VRF (netNs) and intfIdSet, the
// interfaces the virtual IP is configured on; an interface whose value is
// empty is to carry the virtual IP, a non-empty value makes it unwanted.
// Mutators are the publisher's; each notifies only on a real change: per key
// (onVirtualIp(key), onIntfIdSet(id)) or, when a whole collection is
// replaced, through the kivImmediate callback.
#pragma once

#include <map>
#include <vector>

#include "platform/dravo/IntfId.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/Entity.h"
#include "platform/kiv/HashMap.h"
#include "platform/routing/VrfIpPair.h"

namespace Routing::Fhrp {

template <class Key>
struct VirtualIpTypeNames;
template <>
struct VirtualIpTypeNames<VrfIpWithMaskPair> {
  static constexpr const char* status = "Routing::Fhrp::VirtualIpStatus";
  static constexpr const char* intfStatus = "Routing::Fhrp::VirtualIpIntfStatus";
};
template <>
struct VirtualIpTypeNames<VrfIpPair> {
  static constexpr const char* status = "Routing::Fhrp::VirtualIp6Status";
  static constexpr const char* intfStatus = "Routing::Fhrp::VirtualIp6IntfStatus";
};

template <class Key>
class VirtualIpIntfStatusT : public Kiv::Entity {
 public:
  using IntfIdSetMap = Kiv::HashMap<Dravo::IntfId, Kiv::String8>;
  using IntfIdSetIterator = typename IntfIdSetMap::Iterator;
  static constexpr Kiv::AttrId netNsAttrId = 259;
  static constexpr Kiv::AttrId intfIdSetAttrId = 260;

  VirtualIpIntfStatusT(const Key& key, Dravo::NamespaceName netNs)
      : key_(key), netNs_(std::move(netNs)) {}

  const char* fwkTypeName() const override { return VirtualIpTypeNames<Key>::intfStatus; }
  const Key& key() const { return key_; }
  const Dravo::NamespaceName& netNs() const { return netNs_; }
  // The value stored for the interface; null when it is not in the set.
  const Kiv::String8* intfIdSet(const Dravo::IntfId& id) const { return intfIdSet_.find(id); }
  IntfIdSetIterator intfIdSetIterator() const { return intfIdSet_.iterator(); }
  std::size_t intfIdSetSize() const { return intfIdSet_.size(); }

  class NotifieeConst : public Kiv::NotifieeConstOf<VirtualIpIntfStatusT> {
   public:
    virtual void onNetNs() {}
    virtual void onIntfIdSet(Dravo::IntfId) {}
    virtual void onIntfIdSetkivImmediate() {}
  };

  void netNsIs(const Dravo::NamespaceName& ns) {
    if (ns == netNs_) return;
    netNs_ = ns;
    this->template notify<NotifieeConst>(netNsAttrId, [](NotifieeConst& n) { n.onNetNs(); });
  }
  void intfIdSetIs(const Dravo::IntfId& id, const Kiv::String8& value = Kiv::String8()) {
    auto [v, inserted] = intfIdSet_.insert(id, value);
    if (!inserted) {
      if (*v == value) return;
      *v = value;
    }
    notifyIntfIdSet(id);
  }
  void intfIdSetDel(const Dravo::IntfId& id) {
    if (intfIdSet_.erase(id)) notifyIntfIdSet(id);
  }
  // Replaces the whole set; one kivImmediate notification if it differs.
  void intfIdSetIs(const std::map<Dravo::IntfId, Kiv::String8>& all) {
    bool same = all.size() == intfIdSet_.size();
    for (auto it = all.begin(); same && it != all.end(); ++it) {
      const Kiv::String8* v = intfIdSet_.find(it->first);
      same = v && *v == it->second;
    }
    if (same) return;
    intfIdSet_.clear();
    for (const auto& [id, value] : all) intfIdSet_.insert(id, value);
    this->template notify<NotifieeConst>(intfIdSetAttrId,
                                         [](NotifieeConst& n) { n.onIntfIdSetkivImmediate(); });
  }

 private:
  void notifyIntfIdSet(const Dravo::IntfId& id) {
    this->template notify<NotifieeConst>(intfIdSetAttrId,
                                         [&id](NotifieeConst& n) { n.onIntfIdSet(id); });
  }

  Key key_;
  Dravo::NamespaceName netNs_;
  IntfIdSetMap intfIdSet_;
};

template <class Key>
class VirtualIpStatusT : public Kiv::Entity {
 public:
  using IntfStatus = VirtualIpIntfStatusT<Key>;
  using VirtualIpMap = Kiv::HashMap<Key, Kiv::Ptr<IntfStatus>>;
  using VirtualIpIterator = typename VirtualIpMap::Iterator;
  static constexpr Kiv::AttrId virtualIpAttrId = 258;

  explicit VirtualIpStatusT(Kiv::Name name = Kiv::Name()) : Kiv::Entity(std::move(name)) {}

  const char* fwkTypeName() const override { return VirtualIpTypeNames<Key>::status; }
  Kiv::Ptr<IntfStatus> virtualIp(const Key& key) const {
    const Kiv::Ptr<IntfStatus>* p = virtualIp_.find(key);
    return p ? *p : nullptr;
  }
  VirtualIpIterator virtualIpIterator() const { return virtualIp_.iterator(); }
  std::size_t virtualIpSize() const { return virtualIp_.size(); }

  class NotifieeConst : public Kiv::NotifieeConstOf<VirtualIpStatusT> {
   public:
    virtual void onVirtualIp(const Key&) {}
    virtual void onVirtualIpkivImmediate() {}
  };

  // Find-or-create; an existing entry keeps its interfaces and takes the namespace.
  Kiv::Ptr<IntfStatus> virtualIpIs(const Key& key, const Dravo::NamespaceName& netNs) {
    if (Kiv::Ptr<IntfStatus> e = virtualIp(key)) {
      e->netNsIs(netNs);
      return e;
    }
    Kiv::Ptr<IntfStatus> e = new IntfStatus(key, netNs);
    virtualIp_.insert(key, e);
    notifyVirtualIp(key);
    return e;
  }
  void virtualIpDel(const Key& key) {
    if (virtualIp_.erase(key)) notifyVirtualIp(key);
  }
  // Replaces the whole collection with these entries; one kivImmediate
  // notification unless the same entry objects are already in place.
  void virtualIpIs(const std::vector<Kiv::Ptr<IntfStatus>>& entries) {
    bool same = entries.size() == virtualIp_.size();
    for (auto it = entries.begin(); same && it != entries.end(); ++it)
      same = virtualIp((*it)->key()) == *it;
    if (same) return;
    virtualIp_.clear();
    for (const auto& e : entries) virtualIp_.insert(e->key(), e);
    this->template notify<NotifieeConst>(virtualIpAttrId,
                                         [](NotifieeConst& n) { n.onVirtualIpkivImmediate(); });
  }

 private:
  void notifyVirtualIp(const Key& key) {
    this->template notify<NotifieeConst>(virtualIpAttrId,
                                         [&key](NotifieeConst& n) { n.onVirtualIp(key); });
  }
  VirtualIpMap virtualIp_;
};

using VirtualIpIntfStatus = VirtualIpIntfStatusT<VrfIpWithMaskPair>;
using VirtualIp6IntfStatus = VirtualIpIntfStatusT<VrfIpPair>;
using VirtualIpStatus = VirtualIpStatusT<VrfIpWithMaskPair>;
using VirtualIp6Status = VirtualIpStatusT<VrfIpPair>;

}  // namespace Routing::Fhrp
