// The whole product on the wire: the built acl-agent, its plug-in and the
// arptables adapter against the real iptables, ip6tables and arptables (or,
// with --apply nft, the agent's own nftables tables), with
// real packets between a "switch" namespace (the sandbox's own for the
// default VRF, ns-red for VRF red) and a "neighbour" namespace joined to it
// by a veth pair. Everything lives in the test's private sandbox.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/ethernet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <tuple>

#include "platform/dravo/SocketAt.h"
#include "tests/support/Sandbox.h"

namespace {

// Entered once, when the tests run; listing the tests leaves the process alone.
class SandboxEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { reason = enterSandbox(StandIns::off); }
  static inline std::string reason = "the sandbox was not entered";
};
::testing::Environment* const sandbox = ::testing::AddGlobalTestEnvironment(new SandboxEnvironment);

const std::string vmac = "02:1c:73:00:00:99";

// One VRF's piece of the topology. Switch addresses in 10.10.N.0/24 and
// 2001:db8:N::/64: .254 / ::fe its own, .1, .2 / ::1 virtual; the neighbour .10 / ::10.
struct Site {
  std::string name, vrf, ns, dev;
  int n;
  std::string v4(int host) const {
    return "10.10." + std::to_string(n) + "." + std::to_string(host);
  }
  std::string v6(const char* host) const { return "2001:db8:" + std::to_string(n) + "::" + host; }
  std::string nb() const { return "nb-" + vrf; }
  std::string mac(const char* host) const {
    return "02:00:00:00:0" + std::to_string(n) + ":" + host;
  }
};
void PrintTo(const Site& s, std::ostream* o) {
  *o << s.name;
}
// A site and the applier the agent runs with.
using Case = std::tuple<Site, std::string>;

// The prefix that runs a command in namespace ns ("default": the sandbox's own).
std::string at(const std::string& ns) {
  return ns == "default" ? "" : "ip netns exec " + ns + " ";
}
bool run(const std::string& command) {
  return std::system(command.c_str()) == 0;
}

std::string output(const std::string& command) {
  std::string out;
  char buf[512];
  if (FILE* p = ::popen(command.c_str(), "r")) {
    while (std::fgets(buf, sizeof buf, p)) out += buf;
    ::pclose(p);
  }
  return out;
}

// Polls until f holds, for at most ten seconds.
bool eventually(const std::function<bool()>& f) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (; !f(); std::this_thread::sleep_for(std::chrono::milliseconds(50)))
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

// Whether a TCP connection attempt from the neighbour reaches the switch's
// stack at ip: nothing listens there, so it is refused at once; a dropped one times out.
bool reaches(const Site& s, const std::string& ip) {
  const std::string said =
      output("LC_ALL=C " + at(s.nb()) + "timeout 2 bash -c '</dev/tcp/" + ip + "/7000' 2>&1");
  return said.find("Connection refused") != std::string::npos;
}

// Packets counted by the DROP rule for ip in mangle PREROUTING; -1: no such
// rule. With nft: by the drop rule of the family's table, when ip is an
// element of its drop set.
long dropped(const std::string& apply, const std::string& tool, const std::string& ns,
             const std::string& ip) {
  const std::string family = tool == "iptables" ? "ip" : "ip6";
  const std::string n =
      apply != "nft"
          ? output(at(ns) + tool + " -t mangle -L PREROUTING -v -n -x | awk '/ DROP / && / " + ip +
                   " / {print $1}'")
      : output(at(ns) + "nft list set " + family + " acl-agent drop_all 2>/dev/null")
                  .find(ip + " . ") == std::string::npos
          ? ""
          : output(at(ns) + "nft list chain " + family +
                   " acl-agent prerouting | awk '/@drop_all/ {print $(NF-3)}'");
  return n.empty() ? -1 : std::stol(n);
}

// The sender {MAC, IP} of an ARP request, as the neighbour sees it on the wire.
using ArpSender = std::pair<std::string, std::string>;

// Makes the switch resolve a fresh address of the site's subnet (a ping in the
// background) and reads its request with a raw packet socket on the neighbour's side.
ArpSender arpSenderSeen(const Site& site) {
  static int next = 100;
  const std::string target = site.v4(next++ % 100 + 100);
  const int raw =
      Dravo::socketAt(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP), Dravo::NamespaceName(site.nb()));
  run(at(site.ns) + "ping -c 1 -W 1 " + target + " >/dev/null 2>&1 &");
  pollfd p{raw, POLLIN, 0};
  unsigned char f[128];
  char tpa[INET_ADDRSTRLEN], spa[INET_ADDRSTRLEN], sha[18];
  ArpSender seen;
  while (raw >= 0 && seen.first.empty() && ::poll(&p, 1, 1000) == 1) {
    // Ethernet header, then the ARP body: op at 20, sha at 22, spa at 28, tpa at 38.
    if (::recv(raw, f, sizeof f, 0) < 42 || f[21] != 1) continue;
    if (target != ::inet_ntop(AF_INET, f + 38, tpa, sizeof tpa)) continue;
    std::snprintf(sha, sizeof sha, "%02x:%02x:%02x:%02x:%02x:%02x", f[22], f[23], f[24], f[25],
                  f[26], f[27]);
    seen = {sha, ::inet_ntop(AF_INET, f + 28, spa, sizeof spa)};
  }
  ::close(raw);
  return seen;
}

// acl-agent as a child process on a state document that the test replaces.
class AgentRun {
 public:
  AgentRun(const Site& site, const std::string& apply, const std::string& dialect,
           const std::vector<std::string>& vips4, const std::vector<std::string>& vips6 = {})
      : site_(site) {
    char d[] = "/tmp/fhrp-traffic-XXXXXX";
    dir_ = ::mkdtemp(d);
    publish(vips4, vips6);
    if ((pid_ = ::fork()) != 0) return;
    ::dup2(::open((dir_ + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    ::execl(FHRP_AGENT, FHRP_AGENT, "--state", (dir_ + "/state.json").c_str(),
            ("--arptables=" + dialect).c_str(), ("--control=" + dir_ + "/control.sock").c_str(),
            ("--apply=" + apply).c_str(), nullptr);
    ::_exit(127);
  }
  ~AgentRun() {
    if (pid_ > 0 && ::kill(pid_, SIGTERM) == 0) ::waitpid(pid_, nullptr, 0);
    std::filesystem::remove_all(dir_);
  }
  // Replaced by rename, as an operator's tool would; the agent reloads it.
  void publish(const std::vector<std::string>& vips4, const std::vector<std::string>& vips6) {
    auto entries = [&](const std::vector<std::string>& vips, const char* length) {
      std::string out;
      for (const std::string& v : vips)
        out += std::string(out.empty() ? "" : ",") + "{\"vrf\": \"" + site_.vrf +
               "\", \"address\": \"" + v + length + "\", \"interfaces\": [\"Sw\"]}";
      return out;
    };
    std::ofstream(dir_ + "/next.json")
        << "{\"interfaces\": {\"Sw\": {\"device\": \"" << site_.dev << "\"}}, \"vrfs\": {"
        << (site_.vrf == "default" ? ""
                                   : "\"" + site_.vrf + "\": {\"namespace\": \"" + site_.ns + "\"}")
        << "}, \"virtualRouterMac\": {\"lumo\": \"" << vmac << "\"}, \"virtualIps\": ["
        << entries(vips4, "/24") << "], \"virtualIps6\": [" << entries(vips6, "") << "]}\n";
    std::filesystem::rename(dir_ + "/next.json", dir_ + "/state.json");
  }
  std::string err() const { return output("cat " + dir_ + "/err"); }

 private:
  Site site_;
  std::string dir_;
  pid_t pid_ = -1;
};

class TrafficTest : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    if (!SandboxEnvironment::reason.empty()) GTEST_SKIP() << SandboxEnvironment::reason;
    if (!run("command -v ping >/dev/null")) GTEST_SKIP() << "ping is not installed";
    const std::string sw = at(s.ns), nb = at(s.nb());
    if (s.ns != "default") {
      ASSERT_TRUE(run("ip netns add " + s.ns + " && " + sw + "ip link set lo up"));
    }
    ASSERT_TRUE(run("ip netns add " + s.nb() + " && " + nb + "ip link set lo up"));
    ASSERT_TRUE(run(sw + "ip link add " + s.dev + " address " + s.mac("fe") +
                    " type veth peer name nb0 address " + s.mac("10") + " netns " + s.nb()));
    // The switch's own address first: it is the primary one, the source of its ARP requests.
    for (const std::string& a : {s.v4(254) + "/24", s.v4(1) + "/24", s.v4(2) + "/24",
                                 s.v6("fe") + "/64 nodad", s.v6("1") + "/64 nodad"})
      ASSERT_TRUE(run(sw + "ip addr add " + a + " dev " + s.dev));
    for (const std::string& a : {s.v4(10) + "/24", s.v6("10") + "/64 nodad"})
      ASSERT_TRUE(run(nb + "ip addr add " + a + " dev nb0"));
    ASSERT_TRUE(run(sw + "ip link set " + s.dev + " up && " + nb + "ip link set nb0 up"));
    // IPv4 neighbours stay fixed: the mangle rule also rewrites the switch's
    // requests to the neighbour, whose replies then go to the virtual MAC,
    // which nobody here owns. IPv6 neighbours are discovered, rules in place.
    ASSERT_TRUE(run(sw + "ip neigh replace " + s.v4(10) + " lladdr " + s.mac("10") + " dev " +
                    s.dev + " nud permanent"));
    for (int host : {1, 2, 254})
      ASSERT_TRUE(run(nb + "ip neigh replace " + s.v4(host) + " lladdr " + s.mac("fe") +
                      " dev nb0 nud permanent"));
  }
  // The veth pair is deleted at once: a namespace's devices go some time after it.
  void TearDown() override {
    run(at(s.ns) + "ip link del " + s.dev + " 2>/dev/null");
    run("ip netns del " + s.nb() + " 2>/dev/null");
    if (s.ns != "default") run("ip netns del " + s.ns + " 2>/dev/null");
  }
  const Site& s = std::get<0>(GetParam());
  const std::string& apply = std::get<1>(GetParam());
};

// Pings to a virtual IP are answered, everything else to it is dropped (the
// DROP rule counts it), the switch's own address stays open, and a
// withdrawn virtual IP is open again. IPv6 pings need neighbour discovery.
TEST_P(TrafficTest, VirtualIpsAnswerPingsAndNothingElse) {
  AgentRun agent(s, apply, "stock", {s.v4(1)}, {s.v6("1")});
  auto installed = [&] {
    return dropped(apply, "iptables", s.ns, s.v4(1)) >= 0 &&
           dropped(apply, "ip6tables", s.ns, s.v6("1")) >= 0;
  };
  ASSERT_TRUE(eventually(installed)) << agent.err();
  for (const auto& [tool, vip, own] : {std::tuple{"iptables", s.v4(1), s.v4(254)},
                                       std::tuple{"ip6tables", s.v6("1"), s.v6("fe")}}) {
    EXPECT_TRUE(run(at(s.nb()) + "ping -c 1 -W 2 -q " + vip + " >/dev/null 2>&1")) << vip;
    const long before = dropped(apply, tool, s.ns, vip);
    EXPECT_FALSE(reaches(s, vip)) << vip;
    EXPECT_GT(dropped(apply, tool, s.ns, vip), before) << vip;
    EXPECT_TRUE(reaches(s, own)) << own;
  }
  agent.publish({}, {});
  ASSERT_TRUE(eventually([&] {
    return dropped(apply, "iptables", s.ns, s.v4(1)) < 0 &&
           dropped(apply, "ip6tables", s.ns, s.v6("1")) < 0;
  })) << agent.err();
  EXPECT_TRUE(reaches(s, s.v4(1)) && reaches(s, s.v6("1")));
}

// The switch's ARP requests into the subnet carry the virtual MAC and a
// virtual IP; the source moves to the other virtual IP when it leaves, and
// the switch's own binding comes back with the last one. The agent picks
// the stock dialect by itself.
TEST_P(TrafficTest, ArpRequestsCarryTheVirtualRouter) {
  AgentRun agent(s, apply, "auto", {s.v4(1), s.v4(2)});
  ArpSender seen;
  ASSERT_TRUE(eventually([&] {
    seen = arpSenderSeen(s);
    return seen.first == vmac && (seen.second == s.v4(1) || seen.second == s.v4(2));
  })) << seen.first
      << " " << seen.second << "\n"
      << agent.err();
  // nft needs no arptables dialect: no probe, no adapter.
  EXPECT_EQ(agent.err().find("acl-agent: arptables: stock (") == std::string::npos, apply == "nft")
      << agent.err();

  const std::string other = seen.second == s.v4(1) ? s.v4(2) : s.v4(1);
  // The other virtual IP alone, then none: the switch's own binding.
  for (const auto& [vips, expected] :
       {std::pair{std::vector{other}, ArpSender{vmac, other}},
        std::pair{std::vector<std::string>{}, ArpSender{s.mac("fe"), s.v4(254)}}}) {
    agent.publish(vips, {});
    EXPECT_TRUE(eventually([&] { return (seen = arpSenderSeen(s)) == expected; }))
        << seen.first << " " << seen.second << "\n"
        << agent.err();
  }
}

// Per-line, the default applier, in both kinds of namespace; nft, whose
// tables are alike in every namespace, in a VRF's.
const Site dflt{"Default", "default", "default", "vlan10", 1},
    red{"Red", "red", "ns-red", "vlan20", 2};
INSTANTIATE_TEST_SUITE_P(Vrfs, TrafficTest,
                         ::testing::Values(Case{dflt, "per-line"}, Case{red, "per-line"},
                                           Case{red, "nft"}),
                         [](const auto& info) {
                           const std::string apply = std::get<1>(info.param);
                           return std::get<0>(info.param).name +
                                  (apply == "nft" ? "Nft" : "PerLine");
                         });

}  // namespace
