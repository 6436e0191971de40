// Whichever applier runs, the plug-in shows the same: one slice with failing
// lines goes through per-line and through batch, and the level-6 lines, the
// level-0 failure lines and the log messages are compared line for line.
// The slice: both lines of a pair fail; an add and a delete of one arptables
// rule both fail; a namespace disappears while its lines wait. Real
// namespaces in the test's sandbox (the failure probe opens them); every
// command line goes to the scripted system().
#include <gtest/gtest.h>

#include <filesystem>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/CommandRunner.h"
#include "AclPlugin/firewall/IptablesRules.h"
#include "agent/apply/Appliers.h"
#include "agent/apply/BatchApplier.h"
#include "tests/support/Capture.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/Sandbox.h"

extern "C" int __real_system(const char* command);

namespace Routing::Fhrp::Firewall {
namespace {

const Dravo::NamespaceName red("ns-red"), gone("ns-gone");

bool exists(const Dravo::NamespaceName& ns) {
  return std::filesystem::exists("/run/netns/" + ns.stringValue().stdString());
}

// A line fails when it names 10.0.0.1 or the 10.0.9.0/24 subnet; the first
// line for ns-gone deletes that namespace (and succeeds), later ones fail.
int script(const std::string& line) {
  if (line.find("ns-gone") != std::string::npos) {
    if (!exists(gone)) return 256;
    __real_system("ip netns del ns-gone");
    return 0;
  }
  return line.find("10.0.0.1 ") != std::string::npos ||
                 line.find("10.0.9.0/24") != std::string::npos
             ? 256
             : 0;
}

int restore(const Dravo::NamespaceName& ns, const std::vector<std::string>&,
            const std::string& input) {
  if (ns == gone) {
    if (exists(gone)) __real_system("ip netns del ns-gone");
    return 256;
  }
  return input.find("10.0.0.1 ") != std::string::npos ? 256 : 0;
}

struct Shown {
  std::vector<std::string> traced6, failures;
};

Shown slice(bool batch) {
  FakeSystem::reset();
  FakeSystem::resultIs(script);
  EXPECT_EQ(__real_system("ip netns add ns-red && ip netns add ns-gone"), 0);
  TraceCapture traces("VirtualIpArpMangleSm/0,6");
  LogCapture logs;
  Agent::ApplyStats stats;
  Agent::Runner runner(stats);
  Agent::KnownAbsent absent;
  Kiv::Ptr<Acl::CommandApplier> applier;
  if (batch)
    applier = new Agent::BatchApplier(runner, absent, restore);
  else
    applier = new Agent::PerLineApplier(runner, absent);
  commandApplierIs(applier);
  const Dravo::IpGenPrefix subnet("10.0.9.0/24");
  const Dravo::EthAddr mac("02:1c:73:00:00:99");
  addIptablesRules(red, Dravo::IpAddr("10.0.0.1"), "vlan10");
  addArptablesRule(red, subnet, Dravo::IpGenAddr("10.0.9.1"), "vlan10", mac);
  dropArptablesRule(red, subnet, Dravo::IpGenAddr("10.0.9.1"), "vlan10", mac);
  addIptablesRules(gone, Dravo::IpAddr("10.0.0.2"), "vlan10");
  addIp6tablesRules(red, Dravo::Ip6Addr("2001:db8::3"), "vlan10");
  applier->doApplyAll();
  commandApplierIs(nullptr);
  __real_system("ip netns del ns-red");
  Shown s{traces.at(6), traces.at(0)};
  for (const LogLine& l : logs.lines()) s.failures.push_back(l.name + ": " + l.text);
  return s;
}

TEST(ApplierContractTest, BatchShowsWhatPerLineShows) {
  if (const std::string reason = enterSandbox(); !reason.empty()) GTEST_SKIP() << reason;
  const Shown perLine = slice(false), batch = slice(true);
  // Two iptables adds and an arptables add and delete fail where the
  // namespace exists: each with its level-0 line and its message.
  EXPECT_EQ(perLine.failures.size(), 8u);
  EXPECT_EQ(perLine.traced6.size(), 8u);
  EXPECT_EQ(batch.traced6, perLine.traced6);
  EXPECT_EQ(batch.failures, perLine.failures);
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
