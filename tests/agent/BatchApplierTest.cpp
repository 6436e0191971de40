// --apply=batch in process: system() wrapped at link time; restores go to a
// recording runner, kept in run order beside the lines as "RESTORE cmd\ninput".
#include <gtest/gtest.h>

#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "agent/apply/BatchApplier.h"
#include "agent/apply/RestoreInput.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/ManualLoop.h"

namespace {

using Agent::restoreRuleOf;

const std::string kRule =
    R"(PREROUTING -p all -d 10.0.0.1 -i vlan10 -m comment --comment "KESTEL ADDED" -j DROP)";

TEST(RestoreInputTest, TakesRuleLinesOnly) {
  struct Row {
    std::string line;
    std::optional<std::string> rule;  // "table rule", or not restorable
  };
  const Row rows[] = {
      {"iptables -t mangle -A " + kRule, "mangle -A " + kRule},
      {"ip netns exec ns-red ip6tables -t mangle -D " + kRule + " 2>/dev/null",
       "mangle -D " + kRule},
      {"arptables -A OUT -d 10.0.0.0/24 -o vlan10", std::nullopt},
      {"iptables -t mangle -F PREROUTING", std::nullopt},
      {"iptables -A " + kRule, std::nullopt},
      {"iptables -t mangle -A " + kRule + "; reboot", std::nullopt},
      {"iptables -t mangle -A " + kRule + " >/tmp/out", std::nullopt},
  };
  for (const Row& r : rows) {
    const std::optional<Agent::RestoreRule> got = restoreRuleOf(r.line);
    EXPECT_EQ(got ? std::optional(got->table + " " + got->rule) : std::nullopt, r.rule) << r.line;
  }
  EXPECT_EQ(Agent::restoreInputOf("mangle", {"-A X", "-D Y"}), "*mangle\n-A X\n-D Y\nCOMMIT\n");
}

class BatchApplierTest : public ::testing::Test {
 protected:
  BatchApplierTest() { FakeSystem::reset(); }
  // system() lines go into `order`, beside the restores, and succeed.
  void recordLines() {
    FakeSystem::resultIs([this](const std::string& line) {
      order.push_back(line);
      return 0;
    });
  }
  // Queues a rule line whose failure report names it.
  void queue(const std::string& line) {
    EXPECT_EQ(applier->lineIs(line, [this, line] { reported.push_back(line); }), 0);
  }

  Agent::ApplyStats stats;
  Agent::Runner runner{stats};
  Agent::KnownAbsent absent;
  std::vector<std::string> order;  // restores and system() lines, as run
  int restoreStatus = 0;
  std::vector<std::string> reported;
  const std::string arpX = "arptables -A OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.1";
  Kiv::Ptr<Agent::BatchApplier> applier = new Agent::BatchApplier(
      runner, absent,
      [this](const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
             const std::string& input) {
        order.push_back("RESTORE " + Agent::commandText(ns, argv) + "\n" + input);
        return Agent::BatchApplier::Started{-1, [this] { return restoreStatus; }};
      });
};

TEST_F(BatchApplierTest, GroupsInFirstLineOrderKeepsEveryLineAndFlushesLast) {
  recordLines();
  const std::string arpY = "arptables -A OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.2";
  queue("ip netns exec b iptables -t mangle -A " + kRule);
  queue(arpX);
  queue("iptables -t mangle -A " + kRule);
  queue("ip netns exec b iptables -t mangle -D " + kRule + " 2>/dev/null");
  queue("arptables -D OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.1 2>/dev/null");
  queue(arpY);
  queue("ip netns exec b arptables -D OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.2");
  EXPECT_TRUE(order.empty());
  // A line without a report runs at once, after everything queued.
  EXPECT_EQ(applier->lineIs("arptables -F OUT", nullptr), 0);
  const std::vector<std::string> expected = {
      "RESTORE ip netns exec b iptables-restore --noflush\n*mangle\n-A " + kRule + "\n-D " + kRule +
          "\nCOMMIT\n",
      // An add and a delete of one rule both run: each line has its own outcome.
      arpX,
      "arptables -D OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.1 2>/dev/null",
      arpY,
      "RESTORE iptables-restore --noflush\n*mangle\n-A " + kRule + "\nCOMMIT\n",
      "ip netns exec b arptables -D OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.2",
      "arptables -F OUT",
  };
  EXPECT_EQ(order, expected);
  EXPECT_EQ(stats.perTool().at("iptables").run, 3u);
}

TEST_F(BatchApplierTest, FailedRestoreIsAppliedLineByLineAndReportsOnlyTheFailures) {
  restoreStatus = 256;
  FakeSystem::failWhen("10.0.0.2");
  const std::string good = "iptables -t mangle -A " + kRule;
  std::string bad = good;
  bad.replace(bad.find("10.0.0.1"), 8, "10.0.0.2");
  std::string absentDelete = bad;
  absentDelete.replace(absentDelete.find(" -A "), 4, " -D ");
  // A delete of a rule known to be gone fails without a report, once.
  absent.lineIs(absentDelete);
  queue(good);
  queue(bad);
  queue(absentDelete);
  queue(absentDelete);
  applier->doApplyAll();
  EXPECT_EQ(FakeSystem::commands(),
            (std::vector<std::string>{good, bad, absentDelete, absentDelete}));
  EXPECT_EQ(reported, (std::vector<std::string>{bad, absentDelete}));
  EXPECT_EQ(stats.perTool().at("iptables").failed, 3u);
  // Applied once: nothing is left for the next turn.
  applier->doApplyAll();
  EXPECT_EQ(FakeSystem::commands().size(), 4u);
}

// Lines start in the next turn; with no time to spare, each call then
// applies one step (a restore, or one line by itself), in order, and posts
// one turn while anything is left.
TEST_F(BatchApplierTest, AppliesOneStepPerCallWhenOutOfTime) {
  std::vector<std::function<void()>> posted;
  applier = new Agent::BatchApplier(
      runner, absent,
      [this](const Dravo::NamespaceName&, const std::vector<std::string>&, const std::string&) {
        order.push_back("RESTORE");
        return Agent::BatchApplier::Started{-1, [] { return 0; }};
      },
      0, [&posted](std::function<void()> cb) { posted.push_back(std::move(cb)); });
  recordLines();
  const std::string arpY = "arptables -A OUT -d 10.0.0.0/24 -o v1 --mangle-ip-s 10.0.0.2";
  queue("iptables -t mangle -A " + kRule);
  queue(arpX);
  queue(arpY);
  const std::vector<std::vector<std::string>> after = {
      {}, {"RESTORE"}, {"RESTORE", arpX}, {"RESTORE", arpX, arpY}};
  for (const auto& expected : after) {
    applier->doApplyPending();
    EXPECT_EQ(order, expected);
    EXPECT_EQ(posted.size(), expected.size() < 3 ? 1u : 0u);
    if (!posted.empty()) std::exchange(posted, {}).front()();
  }
}

// A restore runs while the loop goes on: its exit is a loop event that keeps
// the loop from idling, and nothing after it starts before it is finished;
// a drain waits for it.
TEST_F(BatchApplierTest, GoesOnWithTheLoopWhileARestoreRuns) {
  ManualLoop loop;
  int exited[2];
  ASSERT_EQ(::pipe(exited), 0);
  int finished = 0;
  applier = new Agent::BatchApplier(
      runner, absent,
      [&](const Dravo::NamespaceName&, const std::vector<std::string>&, const std::string&) {
        order.push_back("RESTORE");
        return Agent::BatchApplier::Started{exited[0], [&finished] { return ++finished, 0; }};
      },
      1.0, [](std::function<void()>) {});
  recordLines();
  const std::string& arp = arpX;
  queue("iptables -t mangle -A " + kRule);
  queue(arp);
  applier->doApplyPending();  // the lines start in the next turn
  applier->doApplyPending();
  applier->doApplyPending();
  EXPECT_EQ(order, std::vector<std::string>{"RESTORE"});
  EXPECT_EQ(finished, 0);
  EXPECT_FALSE(loop.loop().idle());
  ASSERT_EQ(::write(exited[1], "x", 1), 1);
  loop.runUntilIdle();
  EXPECT_EQ(finished, 1);
  EXPECT_TRUE(loop.loop().idle());
  applier->doApplyPending();
  EXPECT_EQ(order, (std::vector<std::string>{"RESTORE", arp}));

  queue("iptables -t mangle -D " + kRule);
  queue(arp);
  applier->doApplyPending();
  applier->doApplyPending();
  applier->doApplyAll();
  EXPECT_EQ(finished, 2);
  EXPECT_EQ(order, (std::vector<std::string>{"RESTORE", arp, "RESTORE", arp}));
  ::close(exited[0]);
  ::close(exited[1]);
}

}  // namespace
