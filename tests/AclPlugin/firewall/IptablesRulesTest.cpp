#include "AclPlugin/firewall/IptablesRules.h"

#include <filesystem>
#include <functional>

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp::Firewall {
namespace {

using Lines = std::vector<std::string>;

struct Op {
  std::function<void(const Dravo::NamespaceName&)> run;
  bool add;
  std::string tool, ip, signature;
};

std::vector<Op> ops() {
  const Dravo::IpAddr v4("10.0.0.1");
  const Dravo::Ip6Addr v6("2001:db8::1");
  const std::string sm = "void Routing::Fhrp::VirtualIpArpTablesSm::";
  const std::string args4 = "(Dravo::NamespaceName, Dravo::IpAddr, Kiv::String)";
  const std::string args6 = "(Dravo::NamespaceName, const Dravo::Ip6Addr&, Kiv::String)";
  return {{[=](auto& ns) { addIptablesRules(ns, v4, "vlan10"); }, true, "iptables", "10.0.0.1",
           sm + "addIptablesRules" + args4},
          {[=](auto& ns) { dropIptablesRules(ns, v4, "vlan10"); }, false, "iptables", "10.0.0.1",
           sm + "dropIptablesRules" + args4},
          {[=](auto& ns) { addIp6tablesRules(ns, v6, "vlan10"); }, true, "ip6tables", "2001:db8::1",
           sm + "addIp6tablesRules" + args6},
          {[=](auto& ns) { dropIp6tablesRules(ns, v6, "vlan10"); }, false, "ip6tables",
           "2001:db8::1", sm + "dropIp6tablesRules" + args6}};
}

class IptablesRulesTest : public FirewallTest {};

std::size_t openDescriptors() {
  auto fds = std::filesystem::directory_iterator("/proc/self/fd");
  return std::distance(begin(fds), end(fds));
}

// Two lines per tool written out in full; the state-machine tests expect the
// other lines through the same builder.
TEST_F(IptablesRulesTest, RunsAcceptThenDropLine) {
  addIptablesRules(Dravo::NamespaceName("blue"), Dravo::IpAddr("10.0.0.1"), "vlan10");
  dropIp6tablesRules(Dravo::DEFAULT_NS, Dravo::Ip6Addr("2001:db8::1"), "vlan10");
  EXPECT_EQ(FakeSystem::commands(),
            (Lines{"ip netns exec blue iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i "
                   "vlan10 -m comment --comment \"KESTEL ADDED\" -j ACCEPT",
                   "ip netns exec blue iptables -t mangle -A PREROUTING -p all -d 10.0.0.1 -i "
                   "vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP",
                   "ip6tables -t mangle -D PREROUTING -p ipv6-icmp -d 2001:db8::1 -i vlan10 -m "
                   "comment --comment \"KESTEL ADDED\" -j ACCEPT 2>/dev/null",
                   "ip6tables -t mangle -D PREROUTING -p all -d 2001:db8::1 -i vlan10 -m comment "
                   "--comment \"KESTEL ADDED\" -j DROP 2>/dev/null"}));
}

TEST_F(IptablesRulesTest, EachOperationTracesItselfAndEachLineInEveryNamespace) {
  for (const Op& op : ops()) {
    SCOPED_TRACE(op.signature);
    for (const NsCase& c : nsCases()) {
      clear();
      op.run(c.ns);
      ASSERT_EQ(FakeSystem::commands().size(), 2u);
      for (const std::string& line : FakeSystem::commands())
        EXPECT_EQ(line.substr(0, c.prefix.size() + op.tool.size() + 1), c.prefix + op.tool + " ");
      EXPECT_EQ(traces.at(6), FakeSystem::commands()) << "each line traced just before it runs";
      EXPECT_EQ(traces.at(8), Lines{op.signature});
      EXPECT_TRUE(logs.lines().empty());
    }
    // The last namespace case is "blue".
    EXPECT_EQ(traces.at(5), Lines{(op.add ? "Adding " : "Dropping ") + op.tool + " rules for " +
                                  op.ip + " on interface vlan10 on namespace blue"});
  }
}

TEST_F(IptablesRulesTest, EachFailedLineIsReportedWhileTheNamespaceExists) {
  const std::size_t descriptors = openDescriptors();
  for (const Op& op : ops()) {
    SCOPED_TRACE(op.signature);
    const std::string action = op.add ? "add" : "remove";
    const std::string where = " rule for virtual IP " + op.ip + " on interface vlan10";
    // Both lines fail, one with the -1 of a failed system() itself: the second still runs. A
    // namespace that is gone or unnamed is checked with arptables and for real in
    // FirewallKernelTest.
    clear();
    FakeSystem::failWhen("-j ACCEPT", -1);
    FakeSystem::failWhen("-j DROP", 256);
    op.run(Dravo::DEFAULT_NS);
    EXPECT_EQ(FakeSystem::commands().size(), 2u);
    EXPECT_EQ(traces.at(0),
              std::vector<std::string>(2, "Failed to " + action + " " + op.tool + where));
    EXPECT_EQ(logTexts("FHRP_IPTABLES_ERROR"),
              std::vector<std::string>(2, "Failed to " + action + " an iptables" + where + "."));
  }
  EXPECT_EQ(openDescriptors(), descriptors) << "the namespace probe is closed on every path";
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
