// verify's reading and comparing: listed rules in both arptables dialects,
// each kind of drift, and repairs asked of the plug-in's view.
#include "agent/control/Verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace Agent::Control {
namespace {

using ::testing::ElementsAre;

const std::string tag = "KESTEL ADDED";

Acl::RuleView ipRule(const char* target, const char* addr = "10.0.0.1",
                     const char* tool = "iptables") {
  return {tool, "ns-red", target, addr, "vlan10", "", "", ""};
}
const Acl::RuleView arpRule{"arptables", "ns-red",      "",         "",
                            "vlan10",    "10.1.1.0/24", "10.1.1.1", "02:00:00:00:01:01"};

Acl::ExpectedPair pair(bool queued = false) {
  return {"iptables", "ns-red", "10.0.0.1", "vlan10", "red", "10.0.0.1/24", "Vlan10", queued};
}

TEST(VerifyTest, ReadsTaggedRulesAndBothArptablesDialects) {
  struct Row {
    const char* tool;
    const char* line;
    std::optional<Acl::RuleView> rule;
  } rows[] = {
      // clang-format off
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -p icmp -m comment --comment \"KESTEL ADDED\" -j ACCEPT", ipRule("ACCEPT")},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -j DROP", std::nullopt},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -m comment --comment other -j DROP", std::nullopt},
      {"arptables", "-A OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1", arpRule},
      {"arptables", "-j mangle -o vlan10 -d 10.1.1.0/255.255.255.0 --h-length 6 --opcode 1 --mangle-ip-s 10.1.1.1 --mangle-mac-s 2:0:0:0:1:1", arpRule},
      {"arptables", "-j ACCEPT -o vlan10 -d 10.1.1.0/24", std::nullopt},
      // clang-format on
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.line);
    const std::string tool = r.tool;
    EXPECT_EQ(tool == "arptables" ? parseArptablesLine("ns-red", r.line)
                                  : parseIptablesLine(tool, "ns-red", tag, r.line),
              r.rule);
  }
}

TEST(VerifyTest, ComparesAPairAndAnArptablesRuleWithTheKernel) {
  const Acl::RuleView accept = ipRule("ACCEPT"), drop = ipRule("DROP");
  const Acl::RuleView other = ipRule("DROP", "10.9.9.9");
  struct Row {
    const char* what;
    std::vector<Acl::RuleView> kernel;
    bool queued;
    std::size_t missing, misordered, extra, missingArp;
  } rows[] = {
      {"in step", {accept, drop, arpRule}, false, 0, 0, 0, 0},
      {"ACCEPT missing", {drop, arpRule}, false, 1, 0, 0, 0},
      {"pair and rule missing", {}, false, 2, 0, 0, 1},
      {"queued: on its way", {}, true, 0, 0, 0, 1},
      {"DROP before ACCEPT", {drop, accept, arpRule}, false, 0, 1, 0, 0},
      {"extra tagged rule", {accept, other, drop, arpRule}, false, 0, 0, 1, 0},
      {"twice", {accept, drop, accept, drop, arpRule}, false, 0, 0, 2, 0},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    const NsDrift d = compareNamespace("ns-red", {pair(r.queued)}, {arpRule}, r.kernel);
    EXPECT_EQ(d.missing.size(), r.missing);
    EXPECT_EQ(d.misordered.size(), r.misordered);
    EXPECT_EQ(d.extra.size(), r.extra);
    EXPECT_EQ(d.missingArp.size(), r.missingArp);
  }
}

// Records what verify asks of the plug-in.
class FakeView : public Acl::PluginView {
 public:
  std::vector<Acl::VipView> virtualIps() const override { return {}; }
  std::vector<Acl::SubnetView> subnets() const override { return {}; }
  Acl::BacklogView backlog() const override { return {}; }
  std::vector<Acl::ExpectedPair> expectedPairs() const override { return pairs; }
  std::vector<Acl::RuleView> expectedArpRules() const override { return arp; }
  std::string ruleComment() const override { return tag; }
  bool pairQueueIs(const Acl::ExpectedPair& p) override {
    queued.push_back(p.prefix + " " + p.intf);
    return true;
  }
  void arpRuleIs(const Acl::RuleView& r) override { readded.push_back(r); }
  int ruleDel(const Acl::RuleView& r) override {
    removed.push_back(r);
    return 0;
  }
  std::vector<Acl::ExpectedPair> pairs;
  std::vector<Acl::RuleView> arp;
  std::vector<std::string> queued;
  std::vector<Acl::RuleView> readded, removed;
};

TEST(VerifyTest, RepairsThroughTheViewAndReportsAFailedReadBack) {
  Kiv::Ptr<FakeView> view = new FakeView();
  Acl::ExpectedPair blue = pair();
  blue.ns = "ns-blue";
  view->pairs = {pair(), blue};
  view->arp = {arpRule};
  std::map<std::string, std::string> listed = {
      {"ip netns exec ns-red iptables -t mangle -S PREROUTING",
       "-P PREROUTING ACCEPT\n"
       "-A PREROUTING -d 10.9.9.9/32 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP\n"},
      {"ip netns exec ns-red ip6tables -t mangle -S PREROUTING", ""},
      {"ip netns exec ns-red arptables -L OUT -n", ""}};
  std::vector<std::string> ran;
  const ReadBack readBack = [&](const std::string& line) -> std::optional<std::string> {
    ran.push_back(line);
    auto it = listed.find(line);
    if (it == listed.end()) return std::nullopt;
    return it->second;
  };

  const VerifyResult r = doVerify(*view, readBack, true);
  EXPECT_THAT(ran, ElementsAre("ip netns exec ns-blue iptables -t mangle -S PREROUTING",
                               "ip netns exec ns-red iptables -t mangle -S PREROUTING",
                               "ip netns exec ns-red ip6tables -t mangle -S PREROUTING",
                               "ip netns exec ns-red arptables -L OUT -n"));
  ASSERT_EQ(r.namespaces.size(), 2u);
  EXPECT_EQ(r.namespaces[0].error,
            "read-back failed: ip netns exec ns-blue iptables -t mangle -S PREROUTING");
  // Both rules of the red pair are missing: the pair is queued once.
  EXPECT_THAT(view->queued, ElementsAre("10.0.0.1/24 Vlan10"));
  EXPECT_THAT(view->readded, ElementsAre(arpRule));
  EXPECT_THAT(view->removed, ElementsAre(ipRule("DROP", "10.9.9.9")));
  const nlohmann::json j = verifyJson(r);
  EXPECT_FALSE(j["inStep"]);
  EXPECT_TRUE(j["readFailed"]);
  EXPECT_EQ(j["repaired"],
            (nlohmann::json{{"queued", 1}, {"readded", 1}, {"removed", 1}, {"failed", 0}}));
}

}  // namespace
}  // namespace Agent::Control
