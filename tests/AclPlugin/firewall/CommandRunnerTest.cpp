// The one runner of command lines; the namespace prefix and the failure
// reports are checked through the rule operations that use them.
#include "AclPlugin/firewall/CommandRunner.h"

#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp {
namespace {

class CommandRunnerTest : public FirewallTest {};

TEST_F(CommandRunnerTest, RunsTheLineUnchangedAndReturnsSystemsResultAsItIs) {
  const char* line = "iptables -t mangle -F PREROUTING 2>/dev/null";
  for (int result : {0, 256, -1, 2 << 8}) {
    clear();
    FakeSystem::resultIs([result](const std::string&) { return result; });
    EXPECT_EQ(runBashCmd(line), result);
    EXPECT_EQ(FakeSystem::commands(), std::vector<std::string>{line});
    ASSERT_EQ(traces.lines().size(), 1u);
    const TraceLine& t = traces.lines()[0];
    EXPECT_EQ(std::tie(t.level, t.function, t.text), std::tuple(6u, "runBashCmd", line));
  }
}

}  // namespace
}  // namespace Routing::Fhrp
