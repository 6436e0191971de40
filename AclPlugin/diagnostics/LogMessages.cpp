#include "AclPlugin/diagnostics/LogMessages.h"

#include "AclPlugin/ModuleInit.h"
#include "platform/kiv/Trace.h"

namespace Routing::Fhrp {

namespace {
// Made at load time with the framework's set-up; the plug-in writes nothing through it.
__attribute__((init_priority(FHRP_INIT_TRACE_HANDLES)))
Kiv::TraceHandle rootPathBaseTrace("RootPathBase::Kiv", false);
}  // namespace

// Severity 4 (warning); no time-based suppression (minimum interval 0.0),
// one line per bucket, rate-limit key from no arguments.
#define FHRP_LOG_HANDLE __attribute__((init_priority(FHRP_INIT_LOG_HANDLES))) Kiv::LogHandle

FHRP_LOG_HANDLE FHRP_IPTABLES_ERROR(
    "FHRP_IPTABLES_ERROR", Kiv::LogSeverity(4),
    "Failed to %s an iptables rule for virtual IP %s on interface %s.",
    "The iptables rule for a LUMO/VRRP virtual IP address was not added/removed, potentially "
    "leading to problems accessing the router via the virtual IP.",
    "Try changing the accept mode for FHRP and then changing it back.", 0.0, 1.0, 0);

FHRP_LOG_HANDLE FHRP_ARPTABLES_ERROR(
    "FHRP_ARPTABLES_ERROR", Kiv::LogSeverity(4),
    "Failed to %s an arptables rule for virtual IP %s on interface %s.",
    "The arptables rule for a LUMO virtual IP address was not added/removed, potentially leading "
    "to incorrect source IPs and source mac addresses inside the arp header in arp requests for "
    "ip addresses inside a virtual IP address subnet.",
    "Delete and reconfigure the virtual IP addresses for which arptables rules failed to be "
    "added/removed.",
    0.0, 1.0, 0);

FHRP_LOG_HANDLE FHRP_IPTABLES_FLUSH_ERROR(
    "FHRP_IPTABLES_FLUSH_ERROR", Kiv::LogSeverity(4),
    "Failed to flush iptables for network namespace %s.",
    "The iptables were not flushed properly when restarting Acl. There may be problems accessing "
    "the router.",
    Kiv::NoActionRequired, 0.0, 1.0, 0);

FHRP_LOG_HANDLE FHRP_ARPTABLES_FLUSH_ERROR(
    "FHRP_ARPTABLES_FLUSH_ERROR", Kiv::LogSeverity(4),
    "Failed to flush arptables for network namespace %s.",
    "The arptables were not flushed properly when restarting Acl. Arp requests sent from the "
    "router may use incorrect source IP and mac address when arping for ip addresses inside a "
    "LUMO ip address subnet.",
    Kiv::NoActionRequired, 0.0, 1.0, 0);

#undef FHRP_LOG_HANDLE

}  // namespace Routing::Fhrp
