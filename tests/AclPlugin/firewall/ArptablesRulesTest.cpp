#include "AclPlugin/firewall/ArptablesRules.h"

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp::Firewall {
namespace {

const Dravo::IpGenPrefix subnet("10.1.1.0/24");
const Dravo::IpGenAddr src(std::string_view("10.1.1.1"));
const Dravo::EthAddr mac("02:00:00:00:01:01");

const std::string addLine =
    "arptables -A OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s "
    "02:00:00:00:01:01 --mangle-ip-s 10.1.1.1";
const std::string dropLine =
    "arptables -D OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s "
    "02:00:00:00:01:01 --mangle-ip-s 10.1.1.1 2>/dev/null";

class ArptablesRulesTest : public FirewallTest {};

TEST_F(ArptablesRulesTest, RunsOneLineInEveryNamespace) {
  for (const NsCase& c : nsCases()) {
    clear();
    addArptablesRule(c.ns, subnet, src, "vlan10", mac);
    dropArptablesRule(c.ns, subnet, src, "vlan10", mac);
    const std::vector<std::string> expected{c.prefix + addLine, c.prefix + dropLine};
    EXPECT_EQ(FakeSystem::commands(), expected);
    EXPECT_EQ(traces.at(6), expected);
    EXPECT_EQ(
        traces.at(8),
        (std::vector<std::string>{
            "void Routing::Fhrp::VirtualIpArpTablesSm::addArptablesRule(Dravo::NamespaceName, "
            "const Dravo::IpGenPrefix&, const Dravo::IpGenAddr&, Kiv::String, const "
            "Dravo::EthAddr&)",
            "void Routing::Fhrp::VirtualIpArpTablesSm::dropArptablesRule(Dravo::"
            "NamespaceName, const Dravo::IpGenPrefix&, const Dravo::IpGenAddr&, "
            "Kiv::String, const Dravo::EthAddr&)"}));
    EXPECT_TRUE(logs.lines().empty());
  }
  clear();
  addArptablesRule(Dravo::NamespaceName("blue"), subnet, src, "vlan10", mac);
  dropArptablesRule(Dravo::NamespaceName("blue"), subnet, src, "vlan10", mac);
  EXPECT_EQ(traces.at(5),
            (std::vector<std::string>{"Adding arptables rules for 10.1.1.1 with subnet 10.1.1.0/24 "
                                      "on interface vlan10 on namespace blue using mac "
                                      "02:00:00:00:01:01",
                                      "Dropping arptables rules for 10.1.1.1 with subnet "
                                      "10.1.1.0/24 on interface vlan10 on namespace blue using "
                                      "mac 02:00:00:00:01:01"}));
}

TEST_F(ArptablesRulesTest, AFailureIsReportedWithTheSourceIpWhileTheNamespaceExists) {
  FakeSystem::failWhen("arptables -A", 1 << 8);
  FakeSystem::failWhen("arptables -D", -1);
  addArptablesRule(Dravo::DEFAULT_NS, subnet, src, "vlan10", mac);
  dropArptablesRule(Dravo::DEFAULT_NS, subnet, src, "vlan10", mac);
  // "10.1.1.1/24" is read as an address: the length is dropped.
  EXPECT_EQ(traces.at(0),
            (std::vector<std::string>{
                "Failed to add arptables rule for virtual IP 10.1.1.1 on interface vlan10",
                "Failed to remove arptables rule for virtual IP 10.1.1.1 on interface vlan10"}));
  EXPECT_EQ(
      logTexts("FHRP_ARPTABLES_ERROR"),
      (std::vector<std::string>{
          "Failed to add an arptables rule for virtual IP 10.1.1.1 on interface vlan10.",
          "Failed to remove an arptables rule for virtual IP 10.1.1.1 on interface vlan10."}));

  for (const Dravo::NamespaceName& ns : {missingNs, Dravo::NamespaceName("")}) {
    clear();
    FakeSystem::failWhen("arptables", 1 << 8);
    addArptablesRule(ns, subnet, src, "vlan10", mac);
    dropArptablesRule(ns, subnet, src, "vlan10", mac);
    EXPECT_EQ(FakeSystem::commands().size(), 2u);
    EXPECT_TRUE(traces.at(0).empty()) << ns;
    EXPECT_TRUE(logs.lines().empty()) << ns;
  }
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
