#include "AclPlugin/diagnostics/Trace.h"

namespace Routing::Fhrp {

const Kiv::TraceHandle& virtualIpArpMangleSmTrace() {
  // Never destroyed: the loader, and through it the state machine, may be
  // torn down by static destructors after this function's statics.
  static const Kiv::TraceHandle* handle = new Kiv::TraceHandle("VirtualIpArpMangleSm", false);
  return *handle;
}

}  // namespace Routing::Fhrp
