// The localVipSubnet collection: the state machine's LocalVipSubnetStatus
// records keyed by IntfSubnetPair. The state machine holds the map and
// forwards its collection members to these functions. Event-loop thread
// only, like the map.
#pragma once

#include "AclPlugin/records/LocalVipSubnetStatus.h"
#include "platform/kiv/HashMap.h"
#include "platform/kiv/Ptr.h"

namespace Routing::Fhrp {

using LocalVipSubnetMap = Kiv::HashMap<IntfSubnetPair, Kiv::Ptr<LocalVipSubnetStatus>>;
using LocalVipSubnetIterator = LocalVipSubnetMap::Iterator;

// Find-or-create. An existing record is returned unchanged when intfDevName,
// vrfName and netNs all equal its own; otherwise Kiv::NameInUseException
// names the first that differs, in that order, and the record stays as it was.
Kiv::Ptr<LocalVipSubnetStatus> localVipSubnetIs(LocalVipSubnetMap& map, const IntfSubnetPair& key,
                                                Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                Dravo::NamespaceName netNs);
// Makes a record and stores it under key, replacing any record there.
Kiv::Ptr<LocalVipSubnetStatus> newLocalVipSubnet(LocalVipSubnetMap& map, const IntfSubnetPair& key,
                                                 Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                 Dravo::NamespaceName netNs);
void localVipSubnetDel(LocalVipSubnetMap& map, const IntfSubnetPair& key);
// Removes the record under it; safe while walking.
void localVipSubnetDel(LocalVipSubnetMap& map, LocalVipSubnetIterator& it);
void localVipSubnetDelAll(LocalVipSubnetMap& map);
// Null when absent.
Kiv::Ptr<LocalVipSubnetStatus> localVipSubnet(const LocalVipSubnetMap& map,
                                              const IntfSubnetPair& key);

}  // namespace Routing::Fhrp
