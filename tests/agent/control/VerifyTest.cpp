// verify's comparing (whole-rule keys, order, copies) and its repairs: what
// it runs, in which order, what it leaves alone, and what it remembers.
#include "agent/control/Verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace Agent::Control {
namespace {

using ::testing::ElementsAre;
using Listed = std::vector<std::pair<std::string, std::vector<Acl::ListedRule>>>;

Acl::ListedRule listed(const std::string& key, std::size_t position) {
  return {key,
          "line " + std::to_string(position),
          position,
          {"iptables", "-D", std::to_string(position)},
          {"iptables", "-S", std::to_string(position)},
          ""};
}

// One installed pair (ACCEPT key "A", DROP key "D") and one arptables rule "R".
Acl::Expected expected(bool queued = false) {
  Acl::Expected e;
  e.pairs = {{"ns-red", "vlan10", "red", "10.0.0.1/24", "Vlan10", queued, true}};
  e.rules = {{"iptables", "ns-red", "A", "delete A", 0, true},
             {"iptables", "ns-red", "D", "delete D", 0, false},
             {"arptables", "ns-red", "R", "delete R", -1, false}};
  e.namespaces = {"default", "ns-red"};
  return e;
}

TEST(VerifyTest, ComparesWholeRulesTheirOrderAndCopies) {
  struct Row {
    const char* what;
    std::vector<std::string> ip, arp;  // keys in listed order
    bool queued;
    std::size_t missing, misordered;
    std::vector<std::size_t> extraAt;
  } rows[] = {
      {"in step", {"A", "D"}, {"R"}, false, 0, 0, {}},
      {"ACCEPT changed", {"A2", "D"}, {"R"}, false, 1, 0, {1}},
      {"pair and rule missing", {}, {}, false, 3, 0, {}},
      {"queued: on its way", {}, {"R"}, true, 0, 0, {}},
      {"DROP before ACCEPT", {"D", "A"}, {"R"}, false, 0, 1, {}},
      {"a copy of ACCEPT after DROP", {"A", "D", "A"}, {"R"}, false, 0, 0, {3}},
      {"a stray rule", {"X", "A", "D"}, {"R", "R2"}, false, 0, 0, {1, 2}},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    Listed l = {{"iptables", {}}, {"arptables", {}}};
    for (std::size_t i = 0; i < r.ip.size(); ++i) l[0].second.push_back(listed(r.ip[i], i + 1));
    for (std::size_t i = 0; i < r.arp.size(); ++i) l[1].second.push_back(listed(r.arp[i], i + 1));
    const NsDrift d = compareNamespace("ns-red", expected(r.queued), l);
    EXPECT_EQ(d.missing.size(), r.missing);
    EXPECT_EQ(d.misordered.size(), r.misordered);
    std::vector<std::size_t> extraAt;
    for (const ExtraRule& e : d.extra) extraAt.push_back(e.rule.position);
    EXPECT_EQ(extraAt, r.extraAt);
  }
}

// Listings are "<ns> <tool>"; the view maps them to the rules set here.
class FakeView : public Acl::PluginView {
 public:
  std::vector<Acl::VipView> virtualIps() const override { return {}; }
  std::vector<Acl::SubnetView> subnets() const override { return {}; }
  Acl::BacklogView backlog() const override { return {}; }
  Acl::Expected expected() const override { return e; }
  std::vector<std::string> tools() const override { return {"iptables", "arptables"}; }
  std::vector<std::string> listingArgv(const std::string& tool) const override {
    return {tool, "-L"};
  }
  std::vector<Acl::ListedRule> listedRules(const std::string&,
                                           const std::string& listing) const override {
    auto it = rules.find(listing);
    return it == rules.end() ? std::vector<Acl::ListedRule>{} : it->second;
  }
  bool pairQueueIs(const Acl::ExpectedPair& p) override {
    log.push_back("queue " + p.prefix);
    return true;
  }
  bool ruleIs(const Acl::ExpectedRule& r) override {
    log.push_back("re-add " + r.key);
    return true;
  }
  Acl::Expected e;
  std::map<std::string, std::vector<Acl::ListedRule>> rules;
  std::vector<std::string> log;
};

TEST(VerifyTest, RepairsExactlyAndRemembersEveryNamespaceItRead) {
  Kiv::Ptr<FakeView> view = new FakeView();
  view->e = expected();
  Acl::ListedRule unsafe = listed("U", 3);
  unsafe.deleteArgv.clear();
  unsafe.unsafe = "odd interface";
  // ns-red: ACCEPT changed (A2 at 1), DROP, a copy of DROP whose position
  // now holds another rule, an unnamed one; the arptables rule is missing.
  view->rules["ns-red iptables"] = {listed("A2", 1), listed("D", 2), unsafe, listed("D", 4)};
  view->rules["ns-old iptables"] = {listed("X", 1)};
  std::set<std::string> seen = {"ns-old", "ns-gone"};
  std::vector<std::string> absent;
  const VerifyInputs in{
      [&](const std::string& ns, const std::vector<std::string>& argv, std::string* out) {
        std::string line = ns;
        for (const std::string& w : argv) line += " " + w;
        view->log.push_back(line);
        if (argv[1] == "-L" && out) *out = ns + " " + argv[0];
        if (argv[1] == "-S" && out) *out = argv[2] == "4" ? "another\n" : "line " + argv[2] + "\n";
        return 0;
      },
      [](const std::string& ns) { return ns != "ns-gone"; },
      [&](const std::string& line) { absent.push_back(line); }, &seen};

  const VerifyResult r = doVerify(*view, in, true);
  EXPECT_THAT(
      view->log,
      ElementsAre("default iptables -L", "default arptables -L", "ns-old iptables -L",
                  "ns-old arptables -L", "ns-red iptables -L", "ns-red arptables -L",
                  // Deletes: the last first, each position checked again.
                  "ns-old iptables -S 1", "ns-old iptables -D 1", "ns-red iptables -S 4",
                  "ns-red iptables -S 1", "ns-red iptables -D 1", "re-add R", "queue 10.0.0.1/24"));
  EXPECT_THAT(absent, ElementsAre("delete A"));
  EXPECT_THAT(seen, ElementsAre("default", "ns-old", "ns-red"));
  EXPECT_EQ(verifyJson(r)["repaired"],
            (nlohmann::json{{"queued", 1}, {"readded", 1}, {"removed", 2}, {"failed", 2}}));
  EXPECT_EQ(verifyJson(r)["namespaces"][2]["extra"][1]["leftAlone"], "odd interface");
}

}  // namespace
}  // namespace Agent::Control
