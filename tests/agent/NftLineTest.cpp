// The plug-in's lines as changes of the agent's nftables tables, and the
// commands one transaction is made of.
#include <gtest/gtest.h>

#include "agent/apply/nft/NftLine.h"
#include "agent/apply/nft/NftTables.h"

namespace {

using namespace Agent::Nft;

Change change(std::string ns, Family f, Op op, Verdict v = Verdict::accept,
              std::string address = "", std::string dev = "", std::string subnet = "",
              std::string mac = "") {
  return Change{ns, f, op, v, address, dev, subnet, mac};
}

const std::string kTag = R"( -m comment --comment "KESTEL ADDED" -j )";

TEST(NftLineTest, ReadsThePluginsShapesOnly) {
  struct Row {
    std::string line;
    std::optional<Change> change;
  };
  const Row rows[] = {
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i vlan10" + kTag + "ACCEPT",
       change("default", Family::ip, Op::add, Verdict::accept, "10.0.0.1", "vlan10")},
      {"ip netns exec ns-red ip6tables -t mangle -D PREROUTING -p all -d 2001:db8::1 -i v2" + kTag +
           "DROP 2>/dev/null",
       change("ns-red", Family::ip6, Op::del, Verdict::drop, "2001:db8::1", "v2")},
      {"ip netns exec b arptables -D OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle "
       "--mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1 2>/dev/null",
       change("b", Family::arp, Op::del, Verdict::accept, "10.1.1.1", "vlan10", "10.1.1.0/24",
              "02:00:00:00:01:01")},
      {"ip netns exec b ip6tables -t mangle -F PREROUTING", change("b", Family::ip6, Op::flush)},
      {"arptables -F OUT", change("default", Family::arp, Op::flush)},
      // Anything else: another verdict or protocol, a bad address or device, more words.
      {"iptables -t mangle -A PREROUTING -p all -d 10.0.0.1 -i vlan10" + kTag + "ACCEPT", {}},
      {"ip6tables -t mangle -A PREROUTING -p icmp -d 2001:db8::1 -i v" + kTag + "ACCEPT", {}},
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.300 -i vlan10" + kTag + "ACCEPT", {}},
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i a\"b" + kTag + "ACCEPT", {}},
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i a/b" + kTag + "ACCEPT", {}},
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i sixteen-bytes-xx" + kTag + "ACCEPT",
       {}},
      {"iptables -t mangle -A PREROUTING -p icmp -d 10.0.0.1 -i vlan10" + kTag + "ACCEPT; true",
       {}},
      {"arptables -A OUT -d 10.1.1.0/33 -o vlan10 -a 6 --arpop Request -j mangle "
       "--mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1",
       {}},
      {"iptables -t mangle -F PREROUTING 2>/dev/null", {}},
      {"iptables -t filter -F INPUT", {}},
  };
  for (const Row& r : rows) EXPECT_EQ(changeOf(r.line), r.change) << r.line;
}

TEST(NftTablesTest, GroupsEachSetsChangesInOrderPerElementAndMakesTablesSureFirst) {
  Script s;
  const Change a = change("default", Family::ip, Op::add, Verdict::accept, "10.0.0.1", "v1");
  Change b = a, dropA = a, delA = a;
  b.address = "10.0.0.2";
  dropA.verdict = Verdict::drop;
  delA.op = Op::del;
  // The plug-in's order: the two sets alternate; `a` goes and comes back.
  for (const Change& c : {a, dropA, b, delA, a}) s.elementIs(c);
  const std::string text = s.text();
  EXPECT_EQ(text.find("add table ip acl-agent\n"), 0u) << text;
  const std::string e1 = "10.0.0.1 . \"v1\"", e2 = "10.0.0.2 . \"v1\"";
  EXPECT_NE(text.find("add element ip acl-agent accept_icmp { " + e1 + ", " + e2 +
                      " }\ndelete element ip acl-agent accept_icmp { " + e1 +
                      " }\nadd element ip acl-agent accept_icmp { " + e1 +
                      " }\nadd element ip acl-agent drop_all { " + e1 + " }\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("ip6"), std::string::npos) << text;
}

}  // namespace
