// --redis and --redis-db: one source at a time, addresses checked up front.
#include <gtest/gtest.h>

#include <vector>

#include "agent/Options.h"

namespace {

Agent::Options parse(std::vector<const char*> args) {
  args.insert(args.begin(), "acl-agent");
  return Agent::parseOptions(static_cast<int>(args.size()), args.data());
}

TEST(RedisOptionsTest, TakesAnAddressAndADatabaseAndRefusesBadUsage) {
  const Agent::Options o = parse({"--redis", "unix:/run/redis/redis.sock", "--redis-db=3"});
  EXPECT_EQ(o.redisAddress, "unix:/run/redis/redis.sock");
  EXPECT_EQ(o.redisDb, 3);
  EXPECT_EQ(parse({"--redis=[::1]:6379"}).redisDb, 6);
  // clang-format off
  for (const std::vector<const char*>& bad : std::vector<std::vector<const char*>>{
          {"--redis", "unix:"}, {"--redis", "localhost"}, {"--redis", "h:0"}, {"--redis", "h:x1"},
          {"--redis-db", "1"}, {"--redis", "h:1", "--redis-db", "-1"},
          {"--redis", "h:1", "--state", "s.json"}, {"status", "--redis", "h:1"}})
    // clang-format on
    EXPECT_THROW(parse(bad), Agent::UsageError) << bad[1];
}

}  // namespace
