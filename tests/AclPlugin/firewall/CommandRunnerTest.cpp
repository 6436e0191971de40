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
    EXPECT_EQ(traces.lines()[0].level, 6u);
    EXPECT_EQ(traces.lines()[0].function, "runBashCmd");
    EXPECT_EQ(traces.lines()[0].text, line);
  }
}

}  // namespace
}  // namespace Routing::Fhrp
