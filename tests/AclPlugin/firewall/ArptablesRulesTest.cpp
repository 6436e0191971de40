#include "AclPlugin/firewall/ArptablesRules.h"

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp::Firewall {
namespace {

const Dravo::IpGenPrefix subnet("10.1.1.0/24");
const Dravo::IpGenAddr src(std::string_view("10.1.1.1"));
const Dravo::EthAddr mac("02:00:00:00:01:01");

class ArptablesRulesTest : public FirewallTest {
 protected:
  void addThenDrop(const Dravo::NamespaceName& ns) {
    addArptablesRule(ns, subnet, src, "vlan10", mac);
    dropArptablesRule(ns, subnet, src, "vlan10", mac);
  }
};

// The two lines written out in full; the namespace prefix is the one the
// iptables lines take (IptablesRulesTest).
TEST_F(ArptablesRulesTest, RunsOneLineEach) {
  const std::string args =
      "ArptablesRule(Dravo::NamespaceName, const Dravo::IpGenPrefix&, const Dravo::IpGenAddr&, "
      "Kiv::String, const Dravo::EthAddr&)";
  addThenDrop(Dravo::NamespaceName("blue"));
  const std::vector<std::string> expected{
      "ip netns exec blue arptables -A OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle "
      "--mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1",
      "ip netns exec blue arptables -D OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle "
      "--mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1 2>/dev/null"};
  EXPECT_EQ(FakeSystem::commands(), expected);
  EXPECT_EQ(traces.at(6), expected);
  EXPECT_EQ(traces.at(8),
            (std::vector<std::string>{"void Routing::Fhrp::VirtualIpArpTablesSm::add" + args,
                                      "void Routing::Fhrp::VirtualIpArpTablesSm::drop" + args}));
  EXPECT_TRUE(logs.lines().empty());
  const std::string rest =
      " arptables rules for 10.1.1.1 with subnet 10.1.1.0/24 on interface vlan10 on namespace "
      "blue using mac 02:00:00:00:01:01";
  EXPECT_EQ(traces.at(5), (std::vector<std::string>{"Adding" + rest, "Dropping" + rest}));
}

TEST_F(ArptablesRulesTest, AFailureIsReportedWithTheSourceIpWhileTheNamespaceExists) {
  FakeSystem::failWhen("arptables -A", 1 << 8);
  FakeSystem::failWhen("arptables -D", -1);
  addThenDrop(Dravo::DEFAULT_NS);
  // "10.1.1.1/24" is read as an address: the length is dropped.
  const std::string where = " arptables rule for virtual IP 10.1.1.1 on interface vlan10";
  EXPECT_EQ(traces.at(0),
            (std::vector<std::string>{"Failed to add" + where, "Failed to remove" + where}));
  EXPECT_EQ(logTexts("FHRP_ARPTABLES_ERROR"),
            (std::vector<std::string>{"Failed to add an" + where + ".",
                                      "Failed to remove an" + where + "."}));

  for (const Dravo::NamespaceName& ns : {missingNs, Dravo::NamespaceName("")}) {
    clear();
    FakeSystem::failWhen("arptables", 1 << 8);
    addThenDrop(ns);
    EXPECT_EQ(FakeSystem::commands().size(), 2u);
    EXPECT_TRUE(traces.at(0).empty()) << ns;
    EXPECT_TRUE(logs.lines().empty()) << ns;
  }
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
