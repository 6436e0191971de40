// A failed rule line is logged only while its namespace exists. Only a real
// named namespace, made and deleted in the test's private sandbox, tells the
// plug-in's probe one from the other; the lines themselves are checked in
// process and the rules they make by the agent's end-to-end tests.
#include <gtest/gtest.h>

#include <cstdlib>

#include "AclPlugin/firewall/IptablesRules.h"
#include "tests/support/Capture.h"
#include "tests/support/Sandbox.h"

namespace Routing::Fhrp::Firewall {
namespace {

// The one test of this program enters the sandbox itself: listing the tests leaves the process
// alone.
TEST(FirewallKernelTest, AFailedDropIsLoggedUntilTheNamespaceIsGone) {
  if (const std::string reason = enterSandbox(); !reason.empty()) GTEST_SKIP() << reason;
  LogCapture logs;
  const Dravo::NamespaceName red("red");
  ASSERT_EQ(std::system("ip netns add red"), 0);
  dropIptablesRules(red, Dravo::IpAddr("10.0.0.1"), "vlan10");
  const std::string text =
      "Failed to remove an iptables rule for virtual IP 10.0.0.1 on interface vlan10.";
  ASSERT_EQ(logs.lines().size(), 2u);
  EXPECT_EQ(logs.lines()[1].text, text);

  ASSERT_EQ(std::system("ip netns del red"), 0);
  logs.clear();
  dropIptablesRules(red, Dravo::IpAddr("10.0.0.1"), "vlan10");
  EXPECT_TRUE(logs.lines().empty());
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
