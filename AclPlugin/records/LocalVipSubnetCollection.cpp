#include "AclPlugin/records/LocalVipSubnetCollection.h"

#include "AclPlugin/records/NameInUse.h"

namespace Routing::Fhrp {

Kiv::Ptr<LocalVipSubnetStatus> localVipSubnetIs(LocalVipSubnetMap& map, const IntfSubnetPair& key,
                                                Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                Dravo::NamespaceName netNs) {
  Kiv::Ptr<LocalVipSubnetStatus> record = localVipSubnet(map, key);
  if (!record)
    return Kiv::validPtr(
        newLocalVipSubnet(map, key, std::move(intfDevName), std::move(vrfName), std::move(netNs)));
  const Kiv::String8 name = valueToStrep(record->intfSubnet());
  if (record->intfDevName() != intfDevName)
    throwReinstantiating(name, "_intfDevName", intfDevName, record->intfDevName());
  if (record->vrfName() != vrfName)
    throwReinstantiating(name, "_vrfName", vrfName.stringValue(), record->vrfName().stringValue());
  if (record->netNs() != netNs)
    throwReinstantiating(name, "_netNs", netNs.stringValue(), record->netNs().stringValue());
  return Kiv::validPtr(record);
}

Kiv::Ptr<LocalVipSubnetStatus> newLocalVipSubnet(LocalVipSubnetMap& map, const IntfSubnetPair& key,
                                                 Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                 Dravo::NamespaceName netNs) {
  Kiv::Ptr<LocalVipSubnetStatus> record(
      new LocalVipSubnetStatus(key, std::move(intfDevName), std::move(vrfName), std::move(netNs)));
  auto [slot, inserted] = map.insert(key, record);
  if (!inserted) *slot = record;
  return record;
}

void localVipSubnetDel(LocalVipSubnetMap& map, const IntfSubnetPair& key) {
  map.erase(key);
}

void localVipSubnetDel(LocalVipSubnetMap& map, LocalVipSubnetIterator& it) {
  map.erase(it);
}

void localVipSubnetDelAll(LocalVipSubnetMap& map) {
  map.clear();
}

Kiv::Ptr<LocalVipSubnetStatus> localVipSubnet(const LocalVipSubnetMap& map,
                                              const IntfSubnetPair& key) {
  const Kiv::Ptr<LocalVipSubnetStatus>* record = map.find(key);
  return record ? *record : nullptr;
}

}  // namespace Routing::Fhrp
