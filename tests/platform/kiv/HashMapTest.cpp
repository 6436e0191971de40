// Kiv::HashMap: basics, an order that depends only on the contents, walks
// that erase and insert as they go, and allocation failures (operator new
// replaced below, armed only around the call under test).
#include "platform/kiv/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/dravo/IntfId.h"

namespace {
long allocationsBeforeFailure = -1;  // -1: never fail
}  // namespace

// GCC 12 at -O2 sees free() on what this operator new returned and warns,
// though both sides of the pair are replaced here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t n) {
  if (allocationsBeforeFailure >= 0 && allocationsBeforeFailure-- == 0) throw std::bad_alloc();
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
#pragma GCC diagnostic pop

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

namespace {

// Each allocation of an insert that grows the table fails in turn: the map
// keeps its entries (findable, walkable, clearable) and the next insert works.
TEST(HashMap, InsertThatFailsToAllocateLeavesTheMapAsItWas) {
  const std::vector<IntfId> keys = intfs(0, 9);  // the 9th insert grows the table of 8
  const IntfId last = keys.back();
  for (long k = 0;; ++k) {
    Map m;
    for (int i = 0; i < 8; ++i) m.insert(keys[i], i);
    allocationsBeforeFailure = k;
    bool failed = false;
    try {
      m.insert(last, 8);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    allocationsBeforeFailure = -1;
    if (!failed) {
      EXPECT_GE(k, 2) << "both bucket arrays and the node are allocated";
      EXPECT_EQ(m.size(), 9u);
      break;
    }
    EXPECT_EQ(m.size(), 8u) << "failed allocation " << k;
    EXPECT_FALSE(m.contains(last));
    EXPECT_EQ(walkOrder(m), expectedOrder(intfs(0, 8))) << "failed allocation " << k;
    m.clear();
    EXPECT_TRUE(m.empty());
    EXPECT_FALSE(m.begin());
  }
}

}  // namespace
