#include "agent/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using Agent::parseOptions;
using testing::ElementsAre;

Agent::Options parse(std::vector<const char*> args) {
  args.insert(args.begin(), "acl-agent");
  return parseOptions(static_cast<int>(args.size()), args.data());
}

TEST(OptionsTest, ParsesEveryOptionAndRefusesBadUsage) {
  // --state, --until-idle, --apply=batch and the status mode are pinned end to
  // end (tests/e2e/agent_*.sh); the e2e runs give agent and client one --control.
  const Agent::Options o = parse({"--plugin", "a.so", "--plugin=b.so", "--trace=X/0", "--trace",
                                  "Y/1-3", "--arptables=stock", "--dry-run=out.txt",
                                  "--verify-every", "2.5", "--repair", "--control", "/tmp/c.sock"});
  EXPECT_THAT(o.plugins, ElementsAre("a.so", "b.so"));
  EXPECT_THAT(o.traces, ElementsAre("X/0", "Y/1-3"));
  EXPECT_EQ(o.arptables, Agent::ArptablesDialect::stock);
  EXPECT_TRUE(o.dryRun);
  EXPECT_EQ(o.dryRunFile, "out.txt");
  EXPECT_EQ(o.verifyEvery, 2.5);
  EXPECT_TRUE(o.repair);
  EXPECT_EQ(o.controlPath, "/tmp/c.sock");
  EXPECT_FALSE(o.help);
  const Agent::Options defaults = parse({});
  EXPECT_EQ(defaults.arptables, Agent::ArptablesDialect::automatic);
  EXPECT_FALSE(defaults.untilIdle);
  EXPECT_EQ(defaults.apply, Agent::Options::Apply::perLine);
  EXPECT_TRUE(parse({"--help"}).help);
  EXPECT_TRUE(parse({"verify", "--repair"}).repair);

  // clang-format off
  for (const std::vector<const char*>& bad : std::vector<std::vector<const char*>>{
          {"--state"}, {"--state="}, {"--plugin"}, {"--plugin", ""}, {"--plugin="},
          {"--until-idle=1"}, {"--arptables=legacy"}, {"state.json"}, {"-x"}, {"--apply=fast"},
          {"--dry-run="}, {"--verify-every", "0"}, {"--verify-every", "1e999"}, {"--repair=yes"},
          {"--json"}, {"status", "--state", "s.json"}, {"verify", "--json"}})
    // clang-format on
    EXPECT_THROW(parse(bad), Agent::UsageError) << bad[0];
}

}  // namespace
