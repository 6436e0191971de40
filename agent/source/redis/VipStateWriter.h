// The agent's own table in the state database, for fleet tools; no one else
// writes it. One row per (virtual IP, interface) pair the plug-in manages:
//   ACL_AGENT_VIP_STATE|<vrf>|<address>|<intfId>   state, since
// address as in VIRTUAL_IP / VIRTUAL_IP6 keys (IPv4 with its prefix length);
// state: "queued" (waiting in the plug-in's backlog), "installed" (the
// plug-in's record holds it), "failed" (wanted, but neither: its namespace
// is unusable or its device unknown); since: when the row took that state
// (seconds since the epoch, three decimals). A pair leaves the table with the
// pair. Writes only what changed since the last write. Event-loop thread.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/acl/PluginView.h"

namespace Agent::Redis {

inline constexpr std::string_view kVipStatePrefix = "ACL_AGENT_VIP_STATE|";

// key -> state, from the plug-in's view.
std::map<std::string, std::string> vipStates(const std::vector<Acl::VipView>& vips);

class VipStateWriter {
 public:
  using Send = std::function<void(const std::vector<std::string>& argv)>;

  // A new connection: `existing` are the table's rows found in the database
  // (an earlier run's, or ours before an outage); all are made right anew.
  void sessionIs(const std::vector<std::string>& existing);
  // Sends one HSET per new or changed row and one DEL per row gone.
  void doWrite(const std::vector<Acl::VipView>& vips, double now, const Send& send);

 private:
  struct Written {
    std::string state;  // "": found, not written by this session
    double since = 0;
  };
  std::map<std::string, Written> written_;
};

}  // namespace Agent::Redis
