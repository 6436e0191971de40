// Kiv::HashMap: basics, an order that depends only on the contents, and
// walks that erase and insert as they go.
#include "platform/kiv/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/dravo/IntfId.h"

namespace {

using Dravo::IntfId;
using Map = Kiv::HashMap<IntfId, int>;

IntfId intf(int i) {
  return IntfId("Ethernet" + std::to_string(i));
}

std::vector<IntfId> intfs(int from, int to) {
  std::vector<IntfId> out;
  for (int i = from; i < to; ++i) out.push_back(intf(i));
  return out;
}

std::vector<IntfId> walkOrder(const Map& m) {
  std::vector<IntfId> out;
  for (auto it = m.iterator(); it; ++it) out.push_back(it.key());
  return out;
}

// The documented order, worked out without the map: ascending (kivHash, key).
std::vector<IntfId> expectedOrder(std::vector<IntfId> keys) {
  std::sort(keys.begin(), keys.end(), [](const IntfId& a, const IntfId& b) {
    return std::make_tuple(kivHash(a), a) < std::make_tuple(kivHash(b), b);
  });
  return keys;
}

TEST(HashMap, InsertKeepsAPresentValue) {
  Map m;
  EXPECT_TRUE(m.insert(intf(1), 10).second);
  EXPECT_FALSE(m.insert(intf(1), 99).second);
  EXPECT_EQ(*m.find(intf(1)), 10);
}

TEST(HashMap, OrderIsAFunctionOfTheContents) {
  const std::vector<IntfId> keys = intfs(0, 600);
  std::vector<IntfId> mixed = keys;
  std::shuffle(mixed.begin(), mixed.end(), std::mt19937(7));
  Map ascending, shuffled, shrunk;
  for (const IntfId& k : keys) ascending.insert(k, 0);
  for (const IntfId& k : mixed) shuffled.insert(k, 0);
  for (const IntfId& k : intfs(0, 5000)) shrunk.insert(k, 0);  // a larger table, then erasures
  for (const IntfId& k : intfs(600, 5000)) shrunk.erase(k);

  const std::vector<IntfId> expected = expectedOrder(keys);
  EXPECT_EQ(walkOrder(ascending), expected);
  EXPECT_EQ(walkOrder(shuffled), expected);
  EXPECT_EQ(walkOrder(shrunk), expected);
}

TEST(HashMap, WalkThatErasesAndInsertsVisitsEachOriginalEntryOnce) {
  const std::vector<IntfId> keys = intfs(0, 300);
  const std::vector<IntfId> order = expectedOrder(keys);
  Map m;
  for (const IntfId& k : keys) m.insert(k, 0);
  // Erase the current entry and the one two places ahead at every step.
  std::vector<IntfId> seen, expected;
  std::map<IntfId, bool> gone;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (gone[order[i]]) continue;
    expected.push_back(order[i]);
    if (i + 2 < order.size()) gone[order[i + 2]] = true;
  }
  for (auto it = m.iterator(); it; ++it) {
    seen.push_back(it.key());
    const std::size_t pos = std::find(order.begin(), order.end(), it.key()) - order.begin();
    EXPECT_TRUE(m.erase(it));
    if (pos + 2 < order.size()) m.erase(order[pos + 2]);
  }
  EXPECT_EQ(seen, expected);
  EXPECT_TRUE(m.empty());

  // Insert during the walk, enough to grow the table several times.
  for (const IntfId& k : keys) m.insert(k, 0);
  std::map<IntfId, int> visits;
  int next = 1000;
  for (auto it = m.iterator(); it; ++it) {
    ++visits[it.key()];
    for (int j = 0; j < 3; ++j) m.insert(intf(next++), 1);
  }
  for (const IntfId& k : keys) EXPECT_EQ(visits[k], 1) << k;
  for (auto& [k, n] : visits) EXPECT_EQ(n, 1) << k;  // new entries ahead may be seen, once

  // The current entry is gone: reading it is an error, moving on is not.
  auto it = m.iterator();
  const IntfId second = (++Map::Iterator(it)).key();
  m.erase(it.key());
  EXPECT_THROW(it.key(), Kiv::RangeException);
  EXPECT_EQ((++it).key(), second);
}

}  // namespace
