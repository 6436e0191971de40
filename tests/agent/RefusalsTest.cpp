// Documents the plug-in could not carry out as written, and option values
// that name nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/Options.h"
#include "agent/StateDocument.h"

namespace {

using Agent::parseStateDocument;
using Agent::StateDocumentError;
using testing::HasSubstr;

const std::string kRed = R"("vrfs": {"red": {"namespace": "ns-red"}})";
const std::string kLumo = R"("virtualRouterMac": {"lumo": "02:1c:73:00:00:99"})";

TEST(RefusalsTest, RefusesWhatThePlugInCannotCarryOut) {
  struct Refusal {
    std::string text, place, reason;
  };
  const Refusal cases[] = {
      // One record per VRF and address in the plug-in, whatever the mask.
      {"{" + kRed + ", " + kLumo + R"(, "virtualIps": [{"vrf": "red", "address": "10.0.0.1/24"},
          {"vrf": "red", "address": "10.0.0.1/25"}]})",
       "/virtualIps/1", "given at /virtualIps/0 with another prefix length"},
      {"{" + kLumo + R"(, "virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.1/24"}]})",
       "/virtualIps/1", "with another prefix length"},
      // Never installed: only a VRF with a status is.
      {R"({"virtualIps": [{"vrf": "green", "address": "10.0.0.1", "namespace": "ns-g"}]})",
       "/virtualIps/0", "VRF \"green\" is not in /vrfs"},
      {R"({"interfaces": {"Vlan10": {"device": "vlan+"}}})", "/interfaces/Vlan10/device",
       "must not hold '+' (iptables reads it as a wildcard)"},
      {R"({"interfaces": {"Vlan10": {"device": "vlan10:1"}}})", "/interfaces/Vlan10/device",
       "must not hold ':'"},
      {R"({"interfaces": {"Vlan10": {"device": ".."}}})", "/interfaces/Vlan10/device",
       "\"..\" is not allowed"},
      {R"({"virtualIps": [{"address": "10.0.0.1/0"}]})", "/virtualIps/0/address",
       "prefix length must be 1 to 32"},
      {R"({"vrfs": {"red": {"namespace": "."}}})", "/vrfs/red/namespace", "\".\" is not allowed"},
      {R"({"virtualIps": [{"address": "10.0.0.1", "namespace": ".."}]})", "/virtualIps/0/namespace",
       "\"..\" is not allowed"},
      // The subnet rule of a virtual IP under /32 rewrites the ARP sender MAC to lumo.
      {R"({"virtualIps": [{"address": "10.0.0.1/24"}]})", "/virtualRouterMac/lumo",
       "missing or all zero, but the virtual IP 10.0.0.1/24 in VRF \"default\" needs it"},
      {R"({"virtualRouterMac": {"lumo": "00:00:00:00:00:00"},
          "virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.2/31"}]})",
       "/virtualRouterMac/lumo", "the virtual IP 10.0.0.2/31"},
      {R"({"virtualRouterMac": {"lumo": "01:00:5e:00:00:01"}})", "/virtualRouterMac/lumo",
       "01:00:5e:00:00:01 is multicast"},
      {R"({"virtualRouterMac": {"vrrp": "33:33:00:00:00:01"}})", "/virtualRouterMac/vrrp",
       "is multicast"},
  };
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      parseStateDocument(c.text);
      ADD_FAILURE() << "accepted";
    } catch (const StateDocumentError& e) {
      EXPECT_EQ(e.place(), c.place);
      EXPECT_THAT(e.reason(), HasSubstr(c.reason));
    }
  }
  // Near misses that stay valid.
  for (const std::string& text : std::vector<std::string>{
           R"({"virtualIps": [{"address": "10.0.0.1"}, {"address": "10.0.0.2/32"}]})",
           "{" + kRed + R"(, "virtualIps6": [{"vrf": "red", "address": "2001:db8::1"},
              {"vrf": "red", "address": "2001:db8::2"}]})",
           R"({"vrfs": {"red": {"namespace": "ns.red+1:x"}}, "virtualIps": [{"vrf": "red",
              "address": "10.0.0.1/24"}, {"address": "10.0.0.1/24"}],
              "virtualRouterMac": {"lumo": "02:00:00:00:00:01", "vrrp": "00:00:5e:00:01:01"}})"})
    EXPECT_NO_THROW(parseStateDocument(text)) << text;
}

TEST(RefusalsTest, AnEmptyPlugInNameIsBadUsage) {
  for (std::vector<const char*> args : {std::vector<const char*>{"acl-agent", "--plugin", ""},
                                        std::vector<const char*>{"acl-agent", "--plugin="}})
    EXPECT_THROW(Agent::parseOptions(static_cast<int>(args.size()), args.data()),
                 Agent::UsageError);
}

}  // namespace
