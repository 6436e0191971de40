#include "AclPlugin/records/LocalVipStatus.h"

namespace Routing::Fhrp {

Kiv::String8 LocalVipStatus::attributeString(Kiv::AttrId id) const {
  switch (id) {
    case vrfIpAttrId:
      return "vrfIp";
    case netNsAttrId:
      return "netNs";
    case intfIdSetAttrId:
      return "intfIdSet";
    default:
      return "unknown";
  }
}

Kiv::String8 LocalVipStatus::intfIdSet(const Dravo::IntfId& intfId) const {
  const Kiv::String8* devName = intfIdSet_.find(intfId);
  return devName ? *devName : Kiv::String8();
}

void LocalVipStatus::intfIdSetIs(const Dravo::IntfId& intfId, Kiv::String8 devName) {
  if (Kiv::String8* current = intfIdSet_.find(intfId)) {
    if (*current == devName) return;
    *current = std::move(devName);
  } else {
    newIntfIdSet(intfId, std::move(devName));
  }
  intfIdSetNotify(intfId);
}

const Kiv::String8& LocalVipStatus::newIntfIdSet(const Dravo::IntfId& intfId,
                                                 Kiv::String8 devName) {
  auto [slot, inserted] = intfIdSet_.insert(intfId, devName);
  if (!inserted) *slot = std::move(devName);
  return *slot;
}

void LocalVipStatus::intfIdSetDel(const Dravo::IntfId& intfId) {
  if (intfIdSet_.erase(intfId)) intfIdSetNotify(intfId);
}

Kiv::String8 LocalVipStatus::intfIdSetDel(IntfIdSetIterator& it) {
  if (!it) return {};
  const Dravo::IntfId intfId = it.key();
  Kiv::String8 devName = it.value();
  intfIdSet_.erase(it);
  intfIdSetNotify(intfId);
  return devName;
}

void LocalVipStatus::intfIdSetDelAll() {
  for (IntfIdSetIterator it = intfIdSet_.iterator(); it; ++it) intfIdSetDel(it);
}

void LocalVipStatus::intfIdSetNotify(const Dravo::IntfId& intfId) const {
  notify<NotifieeConst>(intfIdSetAttrId, [&](NotifieeConst& n) { n.onIntfIdSet(intfId); });
}

}  // namespace Routing::Fhrp
