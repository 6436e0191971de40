#include "AclPlugin/records/LocalVipCollection.h"

#include "AclPlugin/records/NameInUse.h"

namespace Routing::Fhrp {

Kiv::Ptr<LocalVipStatus> localVipIs(LocalVipMap& map, const VrfIpPair& key,
                                    Dravo::NamespaceName netNs) {
  Kiv::Ptr<LocalVipStatus> record = localVip(map, key);
  if (!record) return Kiv::validPtr(newLocalVip(map, key, std::move(netNs)));
  if (record->netNs() != netNs)
    throwReinstantiating(valueToStrep(record->vrfIp()), "_netNs", netNs.stringValue(),
                         record->netNs().stringValue());
  return Kiv::validPtr(record);
}

Kiv::Ptr<LocalVipStatus> newLocalVip(LocalVipMap& map, const VrfIpPair& key,
                                     Dravo::NamespaceName netNs) {
  Kiv::Ptr<LocalVipStatus> record(new LocalVipStatus(key, std::move(netNs)));
  auto [slot, inserted] = map.insert(key, record);
  if (!inserted) *slot = record;
  return record;
}

void localVipDel(LocalVipMap& map, const VrfIpPair& key) {
  map.erase(key);
}

void localVipDel(LocalVipMap& map, LocalVipIterator& it) {
  map.erase(it);
}

void localVipDelAll(LocalVipMap& map) {
  map.clear();
}

Kiv::Ptr<LocalVipStatus> localVip(const LocalVipMap& map, const VrfIpPair& key) {
  const Kiv::Ptr<LocalVipStatus>* record = map.find(key);
  return record ? *record : nullptr;
}

}  // namespace Routing::Fhrp
