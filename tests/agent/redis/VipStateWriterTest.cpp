// The agent's own rows: written when they change, removed with their pair.
#include "agent/source/redis/VipStateWriter.h"

#include <gtest/gtest.h>

namespace {

using Commands = std::vector<std::vector<std::string>>;

Acl::VipView vip(bool installed, bool queued, bool unwanted = false) {
  return {"red", "ns-red", "10.1.0.1/24", {{"Vlan10", "vlan10", installed, queued, unwanted}}};
}

TEST(VipStateWriterTest, WritesOnlyWhatChanged) {
  Agent::Redis::VipStateWriter w;
  Commands sent;
  auto send = [&](const std::vector<std::string>& argv) { sent.push_back(argv); };
  const std::string key = "ACL_AGENT_VIP_STATE|red|10.1.0.1/24|Vlan10";
  w.sessionIs({"ACL_AGENT_VIP_STATE|red|10.9.0.1/24|Vlan10"});  // an earlier run's
  w.doWrite({vip(false, true)}, 1.5, send);
  EXPECT_EQ(sent, (Commands{{"DEL", "ACL_AGENT_VIP_STATE|red|10.9.0.1/24|Vlan10"},
                            {"HSET", key, "state", "queued", "since", "1.500"}}));
  sent.clear();
  w.doWrite({vip(false, true)}, 2.0, send);
  EXPECT_TRUE(sent.empty()) << "nothing changed, nothing sent";
  w.doWrite({vip(true, false)}, 2.5, send);
  w.doWrite({vip(false, false)}, 3.0, send);
  w.doWrite({vip(false, false, true)}, 3.5, send);  // unwanted and gone: not ours any more
  EXPECT_EQ(sent, (Commands{{"HSET", key, "state", "installed", "since", "2.500"},
                            {"HSET", key, "state", "failed", "since", "3.000"},
                            {"DEL", key}}));
}

}  // namespace
