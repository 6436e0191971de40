#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "agent/source/Publisher.h"
#include "tests/agent/Documents.h"

namespace {

using Agent::parseStateDocument;
using Agent::reloadPhaseOne;
using Agent::StateDocument;
using V4 = Routing::Fhrp::VrfIpWithMaskPair;
using V6 = Routing::Fhrp::VrfIpPair;

const std::string kCurrent = AgentTest::baseDocument;

std::string edited(std::string s, const std::string& from, const std::string& to) {
  s.replace(s.find(from), from.size(), to);
  return s;
}

TEST(ReloadPhasesTest, WithdrawsFirstWhatTheNextDocumentDropsOrMoves) {
  const StateDocument current = parseStateDocument(kCurrent);
  // Phase one of both: the document in force less red's virtual IPs.
  StateDocument withdrawn = current;
  withdrawn.virtualIps.erase(V4(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.1.0.1/24")));
  withdrawn.virtualIps6.erase(V6(L3::VrfName("red"), Dravo::IpGenAddr("2001:db8::1")));
  // A new mask or namespace of one virtual IP is pinned end to end
  // (agent_lifecycle); here, what a VRF's change does to its virtual IPs.
  const std::pair<const char*, std::string> cases[] = {
      {"VRF namespace: its virtual IPs move, the VRF waits",
       edited(kCurrent, R"("ns-red")", R"("ns-blue")")},
      {"VRF removed with its virtual IPs: they go while it stays", R"({
         "interfaces": {"Vlan10": {"device": "vlan10"}},
         "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"},
         "virtualIps": [{"address": "10.0.0.1/24", "interfaces": ["Vlan10"]}]})"},
  };
  for (const auto& [what, next] : cases) {
    SCOPED_TRACE(what);
    const std::optional<StateDocument> first = reloadPhaseOne(current, parseStateDocument(next));
    ASSERT_TRUE(first.has_value());
    EXPECT_TRUE(*first == withdrawn);
  }

  // Nothing withdrawn: the next document is published at once.
  const std::vector<std::string> direct = {
      kCurrent,
      edited(kCurrent, R"(["Vlan10"]})", R"(["Vlan10", "Vlan20"]}, {"address": "10.0.0.2/24"})"),
      edited(kCurrent, R"("interfaces": ["Vlan20"]}])", R"("interfaces": {"Vlan20": "no"}}])"),
      edited(edited(kCurrent, "00:00:99", "00:00:98"), R"("ns-red"}})",
             R"("ns-red", "state": "inactive"}, "blue": {"namespace": "ns-blue"}})"),
  };
  for (const std::string& next : direct)
    EXPECT_FALSE(reloadPhaseOne(current, parseStateDocument(next)).has_value()) << next;
}

}  // namespace
