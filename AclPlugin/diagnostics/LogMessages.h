// The plug-in's four structured log messages, one per kind of host
// firewall failure. Each is raised with raiseLog (Raise.h).
#pragma once

#include "platform/kiv/Log.h"

namespace Routing::Fhrp {

// (action word, virtual IP, device): a failed iptables or ip6tables rule command.
extern Kiv::LogHandle FHRP_IPTABLES_ERROR;
// (action word, virtual IP, device): a failed arptables rule command.
extern Kiv::LogHandle FHRP_ARPTABLES_ERROR;
// (namespace): a failed iptables or ip6tables flush in a VRF namespace at start-up.
extern Kiv::LogHandle FHRP_IPTABLES_FLUSH_ERROR;
// (namespace): a failed arptables flush in a VRF namespace at start-up.
extern Kiv::LogHandle FHRP_ARPTABLES_FLUSH_ERROR;

}  // namespace Routing::Fhrp
