// The four log messages as operators see them; their formats are checked in
// the raised lines, where the firewall commands and the start-up flush raise them.
#include "AclPlugin/diagnostics/LogMessages.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

using namespace Routing::Fhrp;

struct Expected {
  const Kiv::LogHandle* handle;
  const char* name;
  const char* explanation;
  std::string action;
};

TEST(LogMessages, HandlesCarryTheirFixedTexts) {
  const Expected table[] = {
      {&FHRP_IPTABLES_ERROR, "FHRP_IPTABLES_ERROR",
       "The iptables rule for a LUMO/VRRP virtual IP address was not added/removed, potentially "
       "leading to problems accessing the router via the virtual IP.",
       "Try changing the accept mode for FHRP and then changing it back."},
      {&FHRP_ARPTABLES_ERROR, "FHRP_ARPTABLES_ERROR",
       "The arptables rule for a LUMO virtual IP address was not added/removed, potentially "
       "leading to incorrect source IPs and source mac addresses inside the arp header in arp "
       "requests for ip addresses inside a virtual IP address subnet.",
       "Delete and reconfigure the virtual IP addresses for which arptables rules failed to be "
       "added/removed."},
      {&FHRP_IPTABLES_FLUSH_ERROR, "FHRP_IPTABLES_FLUSH_ERROR",
       "The iptables were not flushed properly when restarting Acl. There may be problems "
       "accessing the router.",
       Kiv::NoActionRequired},
      {&FHRP_ARPTABLES_FLUSH_ERROR, "FHRP_ARPTABLES_FLUSH_ERROR",
       "The arptables were not flushed properly when restarting Acl. Arp requests sent from the "
       "router may use incorrect source IP and mac address when arping for ip addresses inside "
       "a LUMO ip address subnet.",
       Kiv::NoActionRequired},
  };
  for (const Expected& e : table) {
    SCOPED_TRACE(e.name);
    EXPECT_STREQ(e.handle->name(), e.name);
    EXPECT_STREQ(e.handle->explanation(), e.explanation);
    EXPECT_EQ(e.handle->recommendedAction(), e.action);
    EXPECT_EQ(std::tuple(int(e.handle->severity()), e.handle->minInterval(), e.handle->burst(),
                         e.handle->rateLimitArgs()),
              std::tuple(4, 0.0, 1.0, 0u));
  }
}

}  // namespace
