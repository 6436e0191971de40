// The name-in-use error of the record collections' find-or-create: an
// existing record was asked for again with another constructor parameter.
#pragma once

#include "platform/kiv/String8.h"

namespace Routing::Fhrp {

// Throws Kiv::NameInUseException naming the record (recordName), the
// parameter (attr, e.g. "_netNs") and both values.
[[noreturn]] void throwReinstantiating(const Kiv::String8& recordName, const char* attr,
                                       const Kiv::String8& newValue,
                                       const Kiv::String8& currentValue);

}  // namespace Routing::Fhrp
