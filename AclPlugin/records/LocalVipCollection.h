// The localVip collection: the state machine's LocalVipStatus records keyed
// by VrfIpPair. The state machine holds the map and forwards its collection
// members (localVipIs, newLocalVip, localVipDel, localVipDelAll, localVip)
// to these functions. Event-loop thread only, like the map.
#pragma once

#include "AclPlugin/records/LocalVipStatus.h"
#include "platform/kiv/HashMap.h"
#include "platform/kiv/Ptr.h"

namespace Routing::Fhrp {

using LocalVipMap = Kiv::HashMap<VrfIpPair, Kiv::Ptr<LocalVipStatus>>;
using LocalVipIterator = LocalVipMap::Iterator;

// Find-or-create. An existing record is returned unchanged when its netNs
// equals netNs; otherwise Kiv::NameInUseException is thrown and the record
// stays as it was (delete it first to move a virtual IP to another namespace).
Kiv::Ptr<LocalVipStatus> localVipIs(LocalVipMap& map, const VrfIpPair& key,
                                    Dravo::NamespaceName netNs);
// Makes a record and stores it under key, replacing any record there.
Kiv::Ptr<LocalVipStatus> newLocalVip(LocalVipMap& map, const VrfIpPair& key,
                                     Dravo::NamespaceName netNs);
void localVipDel(LocalVipMap& map, const VrfIpPair& key);
// Removes the record under it; safe while walking.
void localVipDel(LocalVipMap& map, LocalVipIterator& it);
void localVipDelAll(LocalVipMap& map);
// Null when absent.
Kiv::Ptr<LocalVipStatus> localVip(const LocalVipMap& map, const VrfIpPair& key);

}  // namespace Routing::Fhrp
