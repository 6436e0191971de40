#include "agent/source/MemoryBudget.h"

#include <gtest/gtest.h>

#include "tests/agent/Documents.h"

namespace Agent {
namespace {

TEST(MemoryBudgetTest, AddedPairsCountsOnlyNewVipInterfacePairs) {
  const StateDocument base = parseStateDocument(AgentTest::baseDocument);
  EXPECT_EQ(addedPairs(StateDocument(), base), 3u);
  EXPECT_EQ(addedPairs(base, base), 0u);
  const StateDocument next = parseStateDocument(R"({
    "interfaces": {"Vlan10": {"device": "vlan10"}, "Vlan20": {"device": "vlan20"}},
    "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"},
    "virtualIps": [{"address": "10.0.0.1/24", "interfaces": ["Vlan10", "Vlan20"]},
                   {"address": "10.0.0.2/24", "interfaces": ["Vlan10"]}]})");
  EXPECT_EQ(addedPairs(base, next), 2u) << "10.0.0.1 on Vlan20, 10.0.0.2 on Vlan10";
}

TEST(MemoryBudgetTest, RefusedOnlyWhenTheEstimateExceedsTheHeadroom) {
  const MemoryHeadroom tenMiB{10u << 20, "RLIMIT_AS 280 MiB"};
  const struct {
    std::size_t added;
    std::optional<MemoryHeadroom> headroom;
    std::string why;
  } cases[] = {
      {1000000, std::nullopt, ""},
      {5120, tenMiB, ""},
      {5121, tenMiB,
       "would not fit in memory: it adds 5121 virtual IP pairs (about 10 MiB), but only 10 MiB "
       "are left under RLIMIT_AS 280 MiB"},
  };
  for (const auto& c : cases) EXPECT_EQ(memoryRefusal(c.added, c.headroom), c.why) << c.added;
}

}  // namespace
}  // namespace Agent
