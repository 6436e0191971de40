// socketAt: a socket opened inside a named network namespace.
#pragma once

#include "platform/dravo/NamespaceName.h"

namespace Dravo {

// Opens socket(family, type, protocol) inside the namespace `ns`: the
// caller's own namespace for DEFAULT_NS, otherwise the one bound at
// /run/netns/<ns>. Returns the descriptor, or -1 when the namespace does not
// exist or the socket cannot be opened. The calling thread is back in its own
// namespace on return.
int socketAt(int family, int type, int protocol, const NamespaceName& ns);

}  // namespace Dravo
