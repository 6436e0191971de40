#include "AclPlugin/firewall/CommandRunner.h"

#include <filesystem>

#include "AclPlugin/diagnostics/LogMessages.h"
#include "tests/AclPlugin/firewall/FirewallFixture.h"

namespace Routing::Fhrp {
namespace {

class CommandRunnerTest : public FirewallTest {};

std::size_t openDescriptors() {
  auto fds = std::filesystem::directory_iterator("/proc/self/fd");
  return std::distance(begin(fds), end(fds));
}

TEST_F(CommandRunnerTest, NamespacePrefix) {
  for (const NsCase& c : nsCases()) EXPECT_EQ(namespacePrefix(c.ns), c.prefix.c_str());
  // The whole name is compared, case-sensitively, and pasted as it is.
  EXPECT_EQ(namespacePrefix(Dravo::NamespaceName("Default")), "ip netns exec Default ");
  EXPECT_EQ(namespacePrefix(Dravo::NamespaceName("default ")), "ip netns exec default  ");
}

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

TEST_F(CommandRunnerTest, ReportsAFailureOnlyWhileTheNamespaceCanBeOpened) {
  const Dravo::IpGenAddr addr(std::string_view("2001:db8::1"));
  const std::size_t descriptors = openDescriptors();
  doLogMessageIfNamespaceExists(Dravo::DEFAULT_NS, "ip6tables", "remove", FHRP_IPTABLES_ERROR, addr,
                                "vlan10");
  EXPECT_EQ(openDescriptors(), descriptors) << "the probe socket is closed";
  EXPECT_EQ(traces.at(0), std::vector<std::string>{"Failed to remove ip6tables rule for virtual IP "
                                                   "2001:db8::1 on interface vlan10"});
  EXPECT_EQ(
      logTexts("FHRP_IPTABLES_ERROR"),
      std::vector<std::string>{
          "Failed to remove an iptables rule for virtual IP 2001:db8::1 on interface vlan10."});

  for (const Dravo::NamespaceName& gone : {missingNs, Dravo::NamespaceName("")}) {
    clear();
    doLogMessageIfNamespaceExists(gone, "arptables", "add", FHRP_ARPTABLES_ERROR, addr, "vlan10");
    EXPECT_TRUE(traces.lines().empty()) << gone;
    EXPECT_TRUE(logs.lines().empty()) << gone;
  }
}

}  // namespace
}  // namespace Routing::Fhrp
