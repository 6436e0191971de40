#include "AclPlugin/diagnostics/Trace.h"

namespace Routing::Fhrp {

const Kiv::TraceHandle& virtualIpArpMangleSmTrace() {
  static const Kiv::TraceHandle handle("VirtualIpArpMangleSm", false);
  return handle;
}

}  // namespace Routing::Fhrp
