// The rule operations against the real iptables and ip6tables, in a
// private network and mount namespace made by the test itself (the host's
// own filters are never touched), and arptables through the recording
// stand-in.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/IptablesRules.h"
#include "tests/support/Capture.h"
#include "tests/support/Sandbox.h"

namespace Routing::Fhrp::Firewall {
namespace {

// Entered once, when the tests run; listing the tests leaves the process alone.
class SandboxEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { reason = enterSandbox(); }
  static inline std::string reason = "the sandbox was not entered";
};
::testing::Environment* const sandbox = ::testing::AddGlobalTestEnvironment(new SandboxEnvironment);

const Dravo::IpAddr v4("10.0.0.1");
const Dravo::Ip6Addr v6("2001:db8::1");
const Kiv::String8 dev("vlan10");

std::vector<std::string> outputLines(const std::string& command) {
  std::vector<std::string> lines;
  FILE* p = ::popen(command.c_str(), "r");
  if (!p) return lines;
  char buf[512];
  while (std::fgets(buf, sizeof buf, p)) {
    std::string line(buf);
    if (!line.empty() && line.back() == '\n') line.pop_back();
    lines.push_back(line);
  }
  ::pclose(p);
  return lines;
}

// The rules of mangle PREROUTING, as the tool lists them.
std::vector<std::string> rules(const std::string& tool, const Dravo::NamespaceName& ns) {
  const std::string prefix =
      ns == Dravo::DEFAULT_NS ? "" : "ip netns exec " + ns.stringValue().stdString() + " ";
  std::vector<std::string> out;
  for (const std::string& line : outputLines(prefix + tool + " -t mangle -S PREROUTING"))
    if (line.rfind("-A ", 0) == 0) out.push_back(line);
  return out;
}

class FirewallKernelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!SandboxEnvironment::reason.empty()) GTEST_SKIP() << SandboxEnvironment::reason;
  }
  static void netns(const std::string& verb, const Dravo::NamespaceName& ns) {
    ASSERT_EQ(std::system(("ip netns " + verb + " " + ns.stringValue().stdString()).c_str()), 0);
  }

  TraceCapture traces;
  LogCapture logs;
};

TEST_F(FirewallKernelTest, AddsAndDropsExactlyTheRulePairs) {
  const Dravo::NamespaceName blue("blue");
  netns("add", blue);
  const std::vector<std::string> v4Pair{
      "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -p icmp -m comment --comment \"KESTEL ADDED\" -j "
      "ACCEPT",
      "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP"};
  const std::vector<std::string> v6Pair{
      "-A PREROUTING -d 2001:db8::1/128 -i vlan10 -p ipv6-icmp -m comment --comment \"KESTEL "
      "ADDED\" -j ACCEPT",
      "-A PREROUTING -d 2001:db8::1/128 -i vlan10 -m comment --comment \"KESTEL ADDED\" -j DROP"};
  for (const Dravo::NamespaceName& ns : {Dravo::DEFAULT_NS, blue}) {
    const Dravo::NamespaceName& other = ns == blue ? Dravo::DEFAULT_NS : blue;
    addIptablesRules(ns, v4, dev);
    addIp6tablesRules(ns, v6, dev);
    EXPECT_EQ(rules("iptables", ns), v4Pair) << ns;
    EXPECT_EQ(rules("ip6tables", ns), v6Pair) << ns;
    EXPECT_TRUE(rules("iptables", other).empty()) << "only in " << ns;

    dropIptablesRules(ns, v4, dev);
    dropIp6tablesRules(ns, v6, dev);
    EXPECT_TRUE(rules("iptables", ns).empty()) << ns;
    EXPECT_TRUE(rules("ip6tables", ns).empty()) << ns;
  }
  EXPECT_TRUE(logs.lines().empty());
  netns("del", blue);
}

TEST_F(FirewallKernelTest, AFailedDropIsLoggedUntilTheNamespaceIsGone) {
  const Dravo::NamespaceName red("red");
  netns("add", red);
  dropIptablesRules(red, v4, dev);
  dropIp6tablesRules(red, v6, dev);
  const std::string v4Text =
      "Failed to remove an iptables rule for virtual IP 10.0.0.1 on interface vlan10.";
  const std::string v6Text =
      "Failed to remove an iptables rule for virtual IP 2001:db8::1 on interface vlan10.";
  std::vector<std::string> texts;
  for (const LogLine& l : logs.lines()) texts.push_back(l.text);
  EXPECT_EQ(texts, (std::vector<std::string>{v4Text, v4Text, v6Text, v6Text}));

  netns("del", red);
  logs.clear();
  traces.clear();
  addIptablesRules(red, v4, dev);
  dropIptablesRules(red, v4, dev);
  dropIp6tablesRules(red, v6, dev);
  EXPECT_EQ(traces.at(6).size(), 6u) << "the commands still run";
  EXPECT_TRUE(traces.at(0).empty());
  EXPECT_TRUE(logs.lines().empty());
}

TEST_F(FirewallKernelTest, ArptablesLinesReachTheToolInTheirNamespace) {
  char dir[] = "/tmp/fhrp-arptables-XXXXXX";
  ASSERT_NE(::mkdtemp(dir), nullptr);
  const std::string log = std::string(dir) + "/log";
  ::setenv("FHRP_ARPTABLES_LOG", log.c_str(), 1);
  const Dravo::NamespaceName green("green");
  netns("add", green);
  const Dravo::IpGenPrefix subnet("10.1.1.0/24");
  const Dravo::IpGenAddr src(std::string_view("10.1.1.1"));
  const Dravo::EthAddr mac("02:00:00:00:01:01");

  for (const Dravo::NamespaceName& ns : {Dravo::DEFAULT_NS, green}) {
    addArptablesRule(ns, subnet, src, dev, mac);
    dropArptablesRule(ns, subnet, src, dev, mac);
  }
  EXPECT_TRUE(logs.lines().empty());
  dropArptablesRule(green, subnet, src, dev, mac);
  ASSERT_EQ(logs.lines().size(), 1u);
  EXPECT_EQ(logs.lines()[0].text,
            "Failed to remove an arptables rule for virtual IP 10.1.1.1 on interface vlan10.");

  const std::string rule =
      "OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s "
      "02:00:00:00:01:01 --mangle-ip-s 10.1.1.1";
  std::vector<std::string> recorded;
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) recorded.push_back(line);
  EXPECT_EQ(recorded, (std::vector<std::string>{"[default] -A " + rule, "[default] -D " + rule,
                                                "[green] -A " + rule, "[green] -D " + rule,
                                                "[green] -D " + rule}));
  netns("del", green);
  std::system(("rm -rf " + std::string(dir)).c_str());
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
