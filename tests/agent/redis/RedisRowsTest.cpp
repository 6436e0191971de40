// Rows make the model a document makes, and bad rows are refused one by one.
#include "agent/source/redis/RedisRows.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using Agent::Redis::modelOfRows;
using Agent::Redis::Rows;

// The HSET lines of a redis-cli script as rows ("" for an empty quoted value).
Rows rowsOfScript(const std::string& file) {
  Rows rows;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string verb, key, field, value;
    if (!(words >> verb >> key) || verb != "HSET") continue;
    while (words >> field >> value) rows[key].fields[field] = value == "\"\"" ? "" : value;
  }
  return rows;
}

Rows base() {
  return {{"INTERFACE|Vlan10", {{{"device", "vlan10"}}}},
          {"VRF|red", {{{"namespace", "ns-red"}}}},
          {"VIRTUAL_ROUTER_MAC|GLOBAL", {{{"lumo", "02:1c:73:00:00:99"}}}},
          {"VIRTUAL_IP|red|10.1.0.1/24|Vlan10", {{{"NULL", "NULL"}}}}};
}

TEST(RedisRowsTest, TheExampleRowsMakeTheExampleDocument) {
  const Rows rows = rowsOfScript(FHRP_SOURCE_DIR "/examples/redis-state.txt");
  const auto built = modelOfRows(rows, {});
  EXPECT_TRUE(built.refused.empty()) << built.refused.begin()->second;
  EXPECT_TRUE(built.ready);
  EXPECT_EQ(built.accepted, rows.size() - 1);
  EXPECT_EQ(built.model, Agent::loadStateDocument(FHRP_SOURCE_DIR "/examples/state.json"));
}

// GCC 12 at -O2 takes the brace-initialised maps below for uninitialised.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
TEST(RedisRowsTest, RefusesABadRowAndKeepsTheOthers) {
  const std::string junk(64 * 1024, 'x');
  struct Case {
    std::string key;
    Agent::Redis::Row row;
    std::string refusal;
  } cases[] = {
      {"VRF|" + std::string(101, 'v'), {{{"namespace", "ns-v"}}}, "bytes > 100"},
      {"VRF|blue",
       {{{"namespace", "ns blue"}}},
       "VRF|blue: field namespace: namespace \"ns blue\""},
      {"VRF|blue", {{{"colour", "blue"}}}, "VRF|blue: unknown field \"colour\""},
      {"INTERFACE|Vlan\n20", {{{"device", "v20"}}}, "INTERFACE|Vlan\\n20: interface id"},
      {"INTERFACE|Vlan20", {{{"device", "v2 -j ACCEPT"}}}, "may hold only"},
      {"INTERFACE|Vlan20", {{}, false}, "INTERFACE|Vlan20: not a hash"},
      {"VIRTUAL_IP|red|10.1.0.2|Vlan20", {{{"NULL", "NULL"}}}, "unknown interface \"Vlan20\""},
      {"VIRTUAL_IP|green|10.1.0.2/24|Vlan10", {{{"NULL", "NULL"}}}, "has no VRF row"},
      {"VIRTUAL_IP|red|10.1.0.1/25|Vlan10", {{{"NULL", "NULL"}}}, "another prefix length"},
      {"VIRTUAL_IP|red|10.1.0.255/24|Vlan10", {{{"NULL", "NULL"}}}, "broadcast address"},
      {"VIRTUAL_IP6|red|2001:db8::1/64|Vlan10", {{{"NULL", "NULL"}}}, "takes no prefix length"},
      {"VIRTUAL_IP|red|" + junk, {{{"NULL", "NULL"}}}, "VIRTUAL_IP|<vrf>|<a.b.c.d/len>|<intfId>"},
      {"ACL_AGENT_INPUT|" + junk, {{{junk, junk}}}, "not a key of the form ACL_AGENT_INPUT|READY"},
  };
  const auto good = modelOfRows(base(), {});
  ASSERT_TRUE(good.refused.empty());
  for (const Case& c : cases) {
    Rows rows = base();
    rows[c.key] = c.row;
    const auto built = modelOfRows(rows, {});
    ASSERT_EQ(built.refused.size(), 1u) << c.refusal;
    const std::string why = Agent::Redis::shownKey(c.key) + ": " + built.refused.begin()->second;
    EXPECT_EQ(built.refused.begin()->first, c.key);
    EXPECT_NE(why.find(c.refusal), std::string::npos) << why;
    EXPECT_LT(why.size(), 1024u);
    EXPECT_EQ(built.model, good.model) << c.refusal;
  }
}
#pragma GCC diagnostic pop

TEST(RedisRowsTest, DisagreeingRowsKeepTheOneInForce) {
  Rows rows = base();
  rows["VIRTUAL_IP|red|10.1.0.1/25|Vlan10"] = {{{"NULL", "NULL"}}};
  const Agent::StateDocument was = modelOfRows(base(), {}).model;
  // The /25 row sorts first, but /24 is in force: the newcomer waits.
  const auto built = modelOfRows(rows, was);
  EXPECT_EQ(built.model, was);
  EXPECT_TRUE(built.refused.contains("VIRTUAL_IP|red|10.1.0.1/25|Vlan10"));
  // With the old row gone, the new mask is taken.
  rows.erase("VIRTUAL_IP|red|10.1.0.1/24|Vlan10");
  EXPECT_TRUE(modelOfRows(rows, was).refused.empty());
}

TEST(RedisRowsTest, AVipRowWaitsForWhatItNeeds) {
  Rows rows = base();
  rows.erase("VIRTUAL_ROUTER_MAC|GLOBAL");
  EXPECT_NE(modelOfRows(rows, {}).refused.begin()->second.find("no lumo MAC"), std::string::npos);
  rows["VIRTUAL_ROUTER_MAC|GLOBAL"] = {{{"lumo", "03:00:00:00:00:01"}}};
  EXPECT_NE(modelOfRows(rows, {}).refused.at("VIRTUAL_ROUTER_MAC|GLOBAL").find("is multicast"),
            std::string::npos);
}

}  // namespace
