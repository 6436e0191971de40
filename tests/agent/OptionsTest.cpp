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
  const Agent::Options o =
      parse({"--state", "s.json", "--plugin", "a.so", "--plugin=b.so", "--trace=X/0", "--trace",
             "Y/1-3", "--until-idle", "--arptables=stock"});
  EXPECT_EQ(o.stateFile, "s.json");
  EXPECT_THAT(o.plugins, ElementsAre("a.so", "b.so"));
  EXPECT_THAT(o.traces, ElementsAre("X/0", "Y/1-3"));
  EXPECT_TRUE(o.untilIdle);
  EXPECT_FALSE(o.help);
  EXPECT_EQ(o.arptables, Agent::ArptablesDialect::stock);
  EXPECT_EQ(parse({}).arptables, Agent::ArptablesDialect::automatic);
  EXPECT_TRUE(parse({"--help"}).help);
  EXPECT_FALSE(parse({}).untilIdle);
  EXPECT_EQ(parse({}).apply, Agent::Options::Apply::perLine);

  const Agent::Options ops = parse({"--apply=batch", "--dry-run=out.txt", "--control",
                                    "/tmp/c.sock", "--verify-every", "2.5", "--repair"});
  EXPECT_EQ(ops.apply, Agent::Options::Apply::batch);
  EXPECT_TRUE(ops.dryRun);
  EXPECT_EQ(ops.dryRunFile, "out.txt");
  EXPECT_EQ(ops.controlPath, "/tmp/c.sock");
  EXPECT_EQ(ops.verifyEvery, 2.5);
  EXPECT_TRUE(ops.repair);
  EXPECT_EQ(parse({"status", "--json"}).mode, Agent::Options::Mode::status);
  EXPECT_TRUE(parse({"verify", "--repair"}).repair);

  for (const std::vector<const char*>& bad :
       std::vector<std::vector<const char*>>{{"--state"},
                                             {"--state="},
                                             {"--plugin"},
                                             {"--plugin", ""},
                                             {"--plugin="},
                                             {"--until-idle=1"},
                                             {"--arptables=legacy"},
                                             {"state.json"},
                                             {"-x"},
                                             {"--apply=fast"},
                                             {"--dry-run="},
                                             {"--verify-every", "0"},
                                             {"--verify-every", "1e999"},
                                             {"--repair=yes"},
                                             {"--json"},
                                             {"status", "--state", "s.json"},
                                             {"verify", "--json"}}) {
    EXPECT_THROW(parse(bad), Agent::UsageError) << bad[0];
  }
}

}  // namespace
