#include "AclPlugin/records/NameInUse.h"

#include "platform/kiv/Exception.h"

namespace Routing::Fhrp {

void throwReinstantiating(const Kiv::String8& recordName, const char* attr,
                          const Kiv::String8& newValue, const Kiv::String8& currentValue) {
  throw Kiv::NameInUseException("Reinstantiating the entity with name " + recordName.stdString() +
                                " where constructor parameter attribute " + attr +
                                " has a different value of " + newValue.stdString() +
                                " than the current value of " + currentValue.stdString() +
                                " not allowed");
}

}  // namespace Routing::Fhrp
