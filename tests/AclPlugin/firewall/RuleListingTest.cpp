// The listing parser: real listing lines of both arptables dialects key as
// the plug-in's own lines do; whole rules are compared; hostile or odd
// words are never handed out for a delete.
#include "AclPlugin/firewall/RuleListing.h"

#include <gtest/gtest.h>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/IptablesRules.h"

namespace Routing::Fhrp::Firewall {
namespace {

const std::string tag = " -m comment --comment \"KESTEL ADDED\"";

std::string ownKey(Target t, Family f = Family::v4, const char* addr = "10.0.0.1") {
  return ruleKeyOfLine(iptablesRuleLine(Dravo::NamespaceName("ns-red"), f, Verb::add, t,
                                        Kiv::String8(addr), Kiv::String8("vlan10"))
                           .view());
}
std::string ownArpKey() {
  return ruleKeyOfLine(arptablesRuleLine(Dravo::DEFAULT_NS, Verb::drop,
                                         Dravo::IpGenPrefix("10.1.1.0/24"),
                                         Dravo::IpGenAddr("10.1.1.1"), Kiv::String8("vlan10"),
                                         Dravo::EthAddr("02:00:00:00:01:01"))
                           .view());
}

TEST(RuleListingTest, KeysWholeRulesAndNamesOnlyWhatIsSafe) {
  enum Kind { notOurs, same, other, unsafe };
  struct Row {
    const char* tool;
    std::string line;
    Kind kind;
    std::string ownKey;  // the plug-in's key it equals (same) or differs from (other)
  } rows[] = {
      // clang-format off
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -p icmp" + tag + " -j ACCEPT", same, ownKey(Target::accept)},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10" + tag + " -j DROP", same, ownKey(Target::drop)},
      {"ip6tables", "-A PREROUTING -d 2001:db8::1/128 -i vlan10 -p ipv6-icmp" + tag + " -j ACCEPT", same, ownKey(Target::accept, Family::v6, "2001:db8::1")},
      {"arptables", "-j mangle -o vlan10 -d 10.1.1.0/24 --opcode 1 --mangle-ip-s 10.1.1.1 --mangle-mac-s 02:00:00:00:01:01", same, ownArpKey()},
      {"arptables", "-A OUT -d 10.1.1.0/255.255.255.0 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s 2:0:0:0:1:1 --mangle-ip-s 10.1.1.1", same, ownArpKey()},
      // Widened, narrowed, another opcode: another rule.
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10" + tag + " -j ACCEPT", other, ownKey(Target::accept)},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -p udp" + tag + " -j DROP", other, ownKey(Target::drop)},
      {"iptables", "-A PREROUTING -d 10.0.0.0/24 -i vlan10 -p icmp" + tag + " -j ACCEPT", other, ownKey(Target::accept)},
      {"arptables", "-j mangle -o vlan10 -d 10.1.1.0/24 --opcode 2 --mangle-ip-s 10.1.1.1 --mangle-mac-s 02:00:00:00:01:01", other, ownArpKey()},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i $(id>M) -p icmp" + tag + " -j ACCEPT", other, ownKey(Target::accept)},
      // Not the plug-in's kind.
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i vlan10 -j DROP", notOurs, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -m comment --comment other -j DROP", notOurs, ""},
      {"iptables", "-P PREROUTING ACCEPT", notOurs, ""},
      {"arptables", "-j ACCEPT -o vlan10 -d 10.1.1.0/24", notOurs, ""},
      {"arptables", "Chain OUTPUT (policy ACCEPT)", notOurs, ""},
      // Hostile or odd words: reported, never handed out.
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i x y" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i x\ty" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i x/y" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i x\"y" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i !x" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i abcdefghijklmnop" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/33" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -p \"icmp x\"" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32 -i x\xc3\xa9" + tag + " -j DROP", unsafe, ""},
      {"iptables", "-A PREROUTING -d 10.0.0.1/32" + tag + " -j LOG --log-prefix \"a b\\\"\"", unsafe, ""},
      {"arptables", "-j mangle -o x:y -d 10.1.1.0/24 --mangle-ip-s 10.1.1.1 --mangle-mac-s 02:00:00:00:01:01", unsafe, ""},
      {"arptables", "-j mangle ! -o vlan10 -d 10.1.1.0/24 --mangle-ip-s 10.1.1.1 --mangle-mac-s 02:00:00:00:01:01", unsafe, ""},
      {"arptables", "-j mangle -o vlan10 --src-mac 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1", unsafe, ""},
      // clang-format on
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.line);
    const std::vector<Acl::ListedRule> listed = listedRules(r.tool, "-P X\n" + r.line + "\n");
    if (r.kind == notOurs) {
      EXPECT_TRUE(listed.empty());
      continue;
    }
    ASSERT_EQ(listed.size(), 1u);
    const Acl::ListedRule& l = listed[0];
    EXPECT_EQ(l.line, r.line);
    if (r.kind == same) {
      EXPECT_EQ(l.key, r.ownKey);
    } else if (r.kind == other) {
      EXPECT_NE(l.key, r.ownKey);
    }
    EXPECT_EQ(l.deleteArgv.empty(), r.kind == unsafe) << l.unsafe;
    EXPECT_EQ(l.unsafe.empty(), r.kind != unsafe);
  }
}

TEST(RuleListingTest, NamesAnIptablesRuleByItsCheckedPositionAndAnArptablesRuleByItsWords) {
  const std::vector<Acl::ListedRule> ip =
      listedRules("iptables",
                  "-P PREROUTING ACCEPT\n-A PREROUTING -d 10.0.0.9/32 -j DROP\n"
                  "-A PREROUTING -d 10.0.0.1/32 -i $(id>M)" +
                      tag + " -j ACCEPT\n");
  ASSERT_EQ(ip.size(), 1u);
  EXPECT_EQ(ip[0].checkArgv,
            (std::vector<std::string>{"iptables", "-t", "mangle", "-S", "PREROUTING", "2"}));
  EXPECT_EQ(ip[0].deleteArgv,
            (std::vector<std::string>{"iptables", "-t", "mangle", "-D", "PREROUTING", "2"}));
  const std::vector<Acl::ListedRule> arp =
      listedRules("arptables",
                  "-j mangle -o a$(id>M) -d 10.1.1.0/24 --opcode 2 --mangle-ip-s 10.1.1.1 "
                  "--mangle-mac-s 02:00:00:00:01:01\n");
  ASSERT_EQ(arp.size(), 1u);
  EXPECT_TRUE(arp[0].checkArgv.empty());
  EXPECT_EQ(arp[0].deleteArgv, (std::vector<std::string>{
                                   "arptables", "-D", "OUT", "-d", "10.1.1.0/24", "-o", "a$(id>M)",
                                   "-a", "6", "--arpop", "Reply", "-j", "mangle", "--mangle-hw-s",
                                   "02:00:00:00:01:01", "--mangle-ip-s", "10.1.1.1"}));
}

}  // namespace
}  // namespace Routing::Fhrp::Firewall
