#include "AclPlugin/firewall/IptablesRules.h"

#include <functional>

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp::Firewall {
namespace {

const Dravo::IpAddr v4("10.0.0.1");
const Dravo::Ip6Addr v6("2001:db8::1");

struct Op {
  std::function<void(const Dravo::NamespaceName&)> run;
  std::vector<std::string> lines;  // without the namespace prefix
  std::string signature;
  std::string progress;  // for the namespace "blue"
  std::string failure;   // level-0 trace of one failed line
  std::string logText;
};

std::vector<Op> ops() {
  return {
      {[](const Dravo::NamespaceName& ns) { addIptablesRules(ns, v4, "vlan10"); },
       {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j ACCEPT",
        "iptables -t mangle -A PREROUTING -p all -d 10.0.0.1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j DROP"},
       "void Routing::Fhrp::VirtualIpArpTablesSm::addIptablesRules(Dravo::NamespaceName, "
       "Dravo::IpAddr, Kiv::String)",
       "Adding iptables rules for 10.0.0.1 on interface vlan10 on namespace blue",
       "Failed to add iptables rule for virtual IP 10.0.0.1 on interface vlan10",
       "Failed to add an iptables rule for virtual IP 10.0.0.1 on interface vlan10."},
      {[](const Dravo::NamespaceName& ns) { dropIptablesRules(ns, v4, "vlan10"); },
       {"iptables -t mangle -D PREROUTING -p icmp -d 10.0.0.1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j ACCEPT 2>/dev/null",
        "iptables -t mangle -D PREROUTING -p all -d 10.0.0.1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j DROP 2>/dev/null"},
       "void Routing::Fhrp::VirtualIpArpTablesSm::dropIptablesRules(Dravo::NamespaceName, "
       "Dravo::IpAddr, Kiv::String)",
       "Dropping iptables rules for 10.0.0.1 on interface vlan10 on namespace blue",
       "Failed to remove iptables rule for virtual IP 10.0.0.1 on interface vlan10",
       "Failed to remove an iptables rule for virtual IP 10.0.0.1 on interface vlan10."},
      {[](const Dravo::NamespaceName& ns) { addIp6tablesRules(ns, v6, "vlan10"); },
       {"ip6tables -t mangle -A PREROUTING -p ipv6-icmp -d 2001:db8::1 -i vlan10 -m comment "
        "--comment \"KESTEL ADDED\" -j ACCEPT",
        "ip6tables -t mangle -A PREROUTING -p all -d 2001:db8::1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j DROP"},
       "void Routing::Fhrp::VirtualIpArpTablesSm::addIp6tablesRules(Dravo::NamespaceName, const "
       "Dravo::Ip6Addr&, Kiv::String)",
       "Adding ip6tables rules for 2001:db8::1 on interface vlan10 on namespace blue",
       "Failed to add ip6tables rule for virtual IP 2001:db8::1 on interface vlan10",
       "Failed to add an iptables rule for virtual IP 2001:db8::1 on interface vlan10."},
      {[](const Dravo::NamespaceName& ns) { dropIp6tablesRules(ns, v6, "vlan10"); },
       {"ip6tables -t mangle -D PREROUTING -p ipv6-icmp -d 2001:db8::1 -i vlan10 -m comment "
        "--comment \"KESTEL ADDED\" -j ACCEPT 2>/dev/null",
        "ip6tables -t mangle -D PREROUTING -p all -d 2001:db8::1 -i vlan10 -m comment --comment "
        "\"KESTEL ADDED\" -j DROP 2>/dev/null"},
       "void Routing::Fhrp::VirtualIpArpTablesSm::dropIp6tablesRules(Dravo::NamespaceName, const "
       "Dravo::Ip6Addr&, Kiv::String)",
       "Dropping ip6tables rules for 2001:db8::1 on interface vlan10 on namespace blue",
       "Failed to remove ip6tables rule for virtual IP 2001:db8::1 on interface vlan10",
       "Failed to remove an iptables rule for virtual IP 2001:db8::1 on interface vlan10."},
  };
}

class IptablesRulesTest : public FirewallTest {};

TEST_F(IptablesRulesTest, RunsAcceptThenDropLineInEveryNamespace) {
  for (const Op& op : ops()) {
    for (const NsCase& c : nsCases()) {
      clear();
      op.run(c.ns);
      const std::vector<std::string> expected{c.prefix + op.lines[0], c.prefix + op.lines[1]};
      EXPECT_EQ(FakeSystem::commands(), expected);
      EXPECT_EQ(traces.at(6), expected) << "each line traced alone, just before it runs";
      EXPECT_EQ(traces.at(8), std::vector<std::string>{op.signature});
      EXPECT_TRUE(logs.lines().empty());
    }
    clear();
    op.run(Dravo::NamespaceName("blue"));
    EXPECT_EQ(traces.at(5), std::vector<std::string>{op.progress});
  }
}

TEST_F(IptablesRulesTest, EachFailedLineIsReportedAndNeverStopsTheNext) {
  for (const Op& op : ops()) {
    // Both fail, one with the -1 of a failed system() itself.
    clear();
    FakeSystem::failWhen("-j ACCEPT", -1);
    FakeSystem::failWhen("-j DROP", 1 << 8);
    op.run(Dravo::DEFAULT_NS);
    EXPECT_EQ(FakeSystem::commands().size(), 2u);
    EXPECT_EQ(traces.at(0), std::vector<std::string>(2, op.failure));
    EXPECT_EQ(logTexts("FHRP_IPTABLES_ERROR"), std::vector<std::string>(2, op.logText));

    // Either one alone.
    for (const char* failing : {"-j ACCEPT", "-j DROP"}) {
      clear();
      FakeSystem::failWhen(failing);
      op.run(Dravo::DEFAULT_NS);
      EXPECT_EQ(FakeSystem::commands().size(), 2u) << failing;
      EXPECT_EQ(logTexts("FHRP_IPTABLES_ERROR"), std::vector<std::string>{op.logText}) << failing;
    }
  }
}

TEST_F(IptablesRulesTest, FailuresWhereTheNamespaceCannotBeOpenedAreSilent) {
  for (const Op& op : ops()) {
    for (const Dravo::NamespaceName& ns : {missingNs, Dravo::NamespaceName("")}) {
      clear();
      FakeSystem::failWhen("tables", 1 << 8);
      op.run(ns);
      EXPECT_EQ(FakeSystem::commands().size(), 2u);
      EXPECT_TRUE(traces.at(0).empty()) << ns;
      EXPECT_TRUE(logs.lines().empty()) << ns;
    }
  }
}

TEST(IptablesRuleLine, BuildsOneRuleOfThePair) {
  EXPECT_EQ(iptablesRuleLine(Dravo::NamespaceName("red"), Family::v6, Verb::drop, Target::drop,
                             "fe80::1", "et1"),
            "ip netns exec red ip6tables -t mangle -D PREROUTING -p all -d fe80::1 -i et1 -m "
            "comment --comment \"KESTEL ADDED\" -j DROP 2>/dev/null");
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
