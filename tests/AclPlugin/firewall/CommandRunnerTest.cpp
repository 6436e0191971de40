// The one runner of command lines. The lines it runs and traces are checked
// through the rule operations; only its result is checked here.
#include "AclPlugin/firewall/CommandRunner.h"

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp {
namespace {

TEST_F(FirewallTest, RunBashCmdReturnsSystemsResultAsItIs) {
  for (int result : {0, 256, -1, 2 << 8}) {
    FakeSystem::resultIs([result](const std::string&) { return result; });
    EXPECT_EQ(runBashCmd("iptables -t mangle -F PREROUTING"), result);
  }
}

}  // namespace
}  // namespace Routing::Fhrp
