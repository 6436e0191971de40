// --apply nft against the real kernel and libnftables, in the test's own
// sandbox: which lines fail, which namespace each change lands in, chunks.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "agent/apply/nft/NftApplier.h"
#include "tests/support/Sandbox.h"

namespace {

using Agent::Nft::Change;

class SandboxEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { reason = enterSandbox(StandIns::off); }
  static inline std::string reason = "the sandbox was not entered";
};
::testing::Environment* const sandbox = ::testing::AddGlobalTestEnvironment(new SandboxEnvironment);

const std::string kTag = R"( -m comment --comment "KESTEL ADDED" -j )";
std::string rule(const std::string& ns, const char* op, const std::string& ip, bool drop) {
  return (ns == "default" ? "" : "ip netns exec " + ns + " ") + "iptables -t mangle " + op +
         " PREROUTING -p " + (drop ? "all" : "icmp") + " -d " + ip + " -i v1" + kTag +
         (drop ? "DROP" : "ACCEPT") + (op[1] == 'D' ? " 2>/dev/null" : "");
}
std::string arp(const char* op) {
  return std::string("arptables ") + op +
         " OUT -d 10.1.1.0/24 -o v1 -a 6 --arpop Request -j mangle --mangle-hw-s "
         "02:00:00:00:01:01 --mangle-ip-s 10.1.1.1";
}

// "ip accept 10.0.0.1 v1" per element, "arp 10.1.1.0/24 v1 ..." per ARP rule.
std::vector<std::string> tables(Agent::Nft::NftApplier& a, const std::string& ns) {
  std::vector<std::string> out;
  for (const Change& c : a.tablesOf(ns).value_or(std::vector<Change>{}))
    out.push_back(c.family == Agent::Nft::Family::arp
                      ? "arp " + c.subnet + " " + c.dev + " " + c.address + " " + c.mac
                      : std::string(familyName(c.family)) +
                            (c.verdict == Agent::Nft::Verdict::accept ? " accept " : " drop ") +
                            c.address + " " + c.dev);
  return out;
}

class NftApplierTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!SandboxEnvironment::reason.empty()) GTEST_SKIP() << SandboxEnvironment::reason;
    std::system("nft flush ruleset; ip netns del ns-a 2>/dev/null");
  }
  void queue(const std::string& line) {
    EXPECT_EQ(applier->lineIs(line, [this, line] { reported.push_back(line); }), 0);
  }
  Agent::ApplyStats stats;
  Agent::KnownAbsent absent;
  std::vector<std::function<void()>> posted;
  Kiv::Ptr<Agent::Nft::NftApplier> applier = new Agent::Nft::NftApplier(
      stats, absent, 2, [this](std::function<void()> cb) { posted.push_back(std::move(cb)); });
  std::vector<std::string> reported;
};

// Exactly the lines that fail on their own are reported, in order; the
// rest is applied; the start-up flushes leave everyone else's tables alone.
TEST_F(NftApplierTest, AppliesAllButTheFailingLines) {
  ASSERT_EQ(std::system("nft add table inet other && iptables -t mangle -A PREROUTING -j ACCEPT"),
            0);
  const std::vector<std::string> lines = {rule("default", "-A", "10.0.0.1", false),
                                          rule("default", "-A", "10.0.0.1", true),
                                          rule("default", "-D", "10.0.0.2", true),
                                          arp("-A"),
                                          arp("-D"),
                                          arp("-D"),
                                          "iptables -t mangle -A PREROUTING -j ACCEPT",
                                          rule("default", "-A", "10.0.0.3", true)};
  for (const std::string& l : lines) queue(l);
  applier->doApplyAll();
  EXPECT_EQ(reported, (std::vector{lines[2], lines[5], lines[6]}));
  EXPECT_EQ(tables(*applier, "default"),
            (std::vector<std::string>{"ip accept 10.0.0.1 v1", "ip drop 10.0.0.1 v1",
                                      "ip drop 10.0.0.3 v1"}));
  // A slice that fails whole makes its tables sure again: their fixed rules stay two.
  queue(rule("default", "-D", "10.0.0.9", true));
  applier->doApplyAll();
  EXPECT_EQ(std::system("[ $(nft list chain ip acl-agent prerouting | grep -c @) = 2 ]"), 0);
  for (const char* flush : {"iptables -t mangle -F PREROUTING", "arptables -F OUT"})
    EXPECT_EQ(applier->lineIs(flush, nullptr), 0) << flush;
  EXPECT_TRUE(tables(*applier, "default").empty());
  EXPECT_EQ(std::system("nft list table inet other >/dev/null && iptables -t mangle -C "
                        "PREROUTING -j ACCEPT"),
            0);
}

// Each namespace's lines land in its own tables; a gone namespace fails its
// lines; one deleted and added again is found anew.
TEST_F(NftApplierTest, EachNamespaceInItsOwnTables) {
  ASSERT_EQ(std::system("ip netns add ns-a"), 0);
  queue(rule("ns-a", "-A", "10.0.0.1", true));
  queue(rule("ns-gone", "-A", "10.0.0.2", true));
  applier->doApplyAll();
  EXPECT_EQ(reported, std::vector{rule("ns-gone", "-A", "10.0.0.2", true)});
  EXPECT_EQ(tables(*applier, "ns-a"), std::vector<std::string>{"ip drop 10.0.0.1 v1"});
  EXPECT_TRUE(tables(*applier, "default").empty());
  ASSERT_EQ(std::system("ip netns del ns-a && ip netns add ns-a"), 0);
  queue(rule("ns-a", "-A", "10.0.0.3", true));
  applier->doApplyAll();
  EXPECT_EQ(tables(*applier, "ns-a"), std::vector<std::string>{"ip drop 10.0.0.3 v1"});
}

// A table someone deleted is made again by the next lines, which succeed.
TEST_F(NftApplierTest, MakesADeletedTableAgain) {
  queue(rule("default", "-A", "10.0.0.1", true));
  applier->doApplyAll();
  ASSERT_EQ(std::system("nft delete table ip acl-agent"), 0);
  queue(rule("default", "-A", "10.0.0.2", true));
  applier->doApplyAll();
  EXPECT_TRUE(reported.empty());
  EXPECT_EQ(tables(*applier, "default"), std::vector<std::string>{"ip drop 10.0.0.2 v1"});
}

// A delete finds a rule of the same values without the agent's comment.
TEST_F(NftApplierTest, DeletesARuleAddedByHand) {
  ASSERT_EQ(applier->lineIs("arptables -F OUT", nullptr), 0);
  ASSERT_EQ(std::system("nft add rule arp acl-agent output arp operation request arp hlen 6 arp "
                        "daddr ip 10.1.1.0/24 oifname v1 arp saddr ether set 02:00:00:00:01:01 "
                        "arp saddr ip set 10.1.1.1"),
            0);
  queue(arp("-D"));
  applier->doApplyAll();
  EXPECT_TRUE(reported.empty());
  EXPECT_TRUE(tables(*applier, "default").empty());
}

// At most two lines per call; the rest waits, in order, behind one posted turn.
TEST_F(NftApplierTest, AppliesABigSliceInChunks) {
  for (const char* op : {"-A", "-D", "-A", "-D", "-A"})
    queue(rule("default", op, "10.0.0.1", true));
  std::size_t calls = 0;
  for (; applier->pending() > 0 && calls < 10; ++calls) {
    applier->doApplyPending();
    EXPECT_LE(posted.size(), 1u);
    if (!posted.empty()) std::exchange(posted, {}).front()();
  }
  EXPECT_EQ(calls, 3u);
  EXPECT_TRUE(reported.empty());
  EXPECT_EQ(tables(*applier, "default"), std::vector<std::string>{"ip drop 10.0.0.1 v1"});
}

}  // namespace
