// The whole product on the wire: the built acl-agent, its plug-in and the
// arptables adapter (the agent picks the stock dialect by itself) against the
// real iptables, ip6tables and arptables, with real packets between the
// switch's namespace of VRF red and a neighbour's, joined by a veth pair.
// Everything lives in the test's private sandbox.
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

// The switch (ns-red, vlan20) owns 10.10.2.254 and 2001:db8:2::fe, and .1, .2
// and ::1 are its virtual IPs; the neighbour (nb-red, nb0) is .10 and ::10.
const std::string sw = "ip netns exec ns-red ", nb = "ip netns exec nb-red ";
const std::string vmac = "02:1c:73:00:00:99", swMac = "02:00:00:00:02:fe";

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
bool reaches(const std::string& ip) {
  const std::string said =
      output("LC_ALL=C " + nb + "timeout 2 bash -c '</dev/tcp/" + ip + "/7000' 2>&1");
  return said.find("Connection refused") != std::string::npos;
}

// Packets counted by the DROP rule for ip in mangle PREROUTING; -1: no such rule.
long dropped(const std::string& tool, const std::string& ip) {
  const std::string n =
      output(sw + tool + " -t mangle -L PREROUTING -v -n -x | awk '/ DROP / && / " + ip +
             " / {print $1}'");
  return n.empty() ? -1 : std::stol(n);
}

// The sender {MAC, IP} of an ARP request, as the neighbour sees it on the wire.
using ArpSender = std::pair<std::string, std::string>;

// Makes the switch resolve a fresh address of the subnet (a ping in the
// background) and reads its request with a raw packet socket on the neighbour's side.
ArpSender arpSenderSeen() {
  static int next = 100;
  const std::string target = "10.10.2." + std::to_string(next++ % 100 + 100);
  const int raw =
      Dravo::socketAt(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP), Dravo::NamespaceName("nb-red"));
  run(sw + "ping -c 1 -W 1 " + target + " >/dev/null 2>&1 &");
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
  AgentRun(const std::vector<std::string>& vips4, const std::vector<std::string>& vips6) {
    char d[] = "/tmp/fhrp-traffic-XXXXXX";
    dir_ = ::mkdtemp(d);
    publish(vips4, vips6);
    if ((pid_ = ::fork()) != 0) return;
    ::dup2(::open((dir_ + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    ::execl(FHRP_AGENT, FHRP_AGENT, "--state", (dir_ + "/state.json").c_str(),
            ("--control=" + dir_ + "/control.sock").c_str(), nullptr);
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
        out += std::string(out.empty() ? "" : ",") + "{\"vrf\": \"red\", \"address\": \"" + v +
               length + "\", \"interfaces\": [\"Sw\"]}";
      return out;
    };
    std::ofstream(dir_ + "/next.json")
        << "{\"interfaces\": {\"Sw\": {\"device\": \"vlan20\"}}, \"vrfs\": {\"red\": "
           "{\"namespace\": \"ns-red\"}}, \"virtualRouterMac\": {\"lumo\": \""
        << vmac << "\"}, \"virtualIps\": [" << entries(vips4, "/24") << "], \"virtualIps6\": ["
        << entries(vips6, "") << "]}\n";
    std::filesystem::rename(dir_ + "/next.json", dir_ + "/state.json");
  }
  std::string err() const { return output("cat " + dir_ + "/err"); }

 private:
  std::string dir_;
  pid_t pid_ = -1;
};

class TrafficTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!SandboxEnvironment::reason.empty()) GTEST_SKIP() << SandboxEnvironment::reason;
    if (!run("command -v ping >/dev/null")) GTEST_SKIP() << "ping is not installed";
    ASSERT_TRUE(run("ip netns add ns-red && ip netns add nb-red && " + sw +
                    "ip link set lo up && " + nb + "ip link set lo up"));
    ASSERT_TRUE(run(sw + "ip link add vlan20 address " + swMac +
                    " type veth peer name nb0 address 02:00:00:00:02:10 netns nb-red"));
    // The switch's own address first: it is the primary one, the source of its ARP requests.
    for (const char* a : {"10.10.2.254/24", "10.10.2.1/24", "10.10.2.2/24",
                          "2001:db8:2::fe/64 nodad", "2001:db8:2::1/64 nodad"})
      ASSERT_TRUE(run(sw + "ip addr add " + a + " dev vlan20"));
    for (const char* a : {"10.10.2.10/24", "2001:db8:2::10/64 nodad"})
      ASSERT_TRUE(run(nb + "ip addr add " + a + " dev nb0"));
    ASSERT_TRUE(run(sw + "ip link set vlan20 up && " + nb + "ip link set nb0 up"));
    // IPv4 neighbours stay fixed: the mangle rule also rewrites the switch's
    // requests to the neighbour, whose replies then go to the virtual MAC,
    // which nobody here owns. IPv6 neighbours are discovered, rules in place.
    ASSERT_TRUE(run(sw + "ip neigh replace 10.10.2.10 lladdr 02:00:00:00:02:10 dev vlan20 nud "
                         "permanent"));
    for (const char* host : {"1", "2", "254"})
      ASSERT_TRUE(run(nb + "ip neigh replace 10.10.2." + host + " lladdr " + swMac +
                      " dev nb0 nud permanent"));
  }
  void TearDown() override {
    run("ip netns del nb-red 2>/dev/null; ip netns del ns-red 2>/dev/null");
  }
};

// Pings to a virtual IP are answered, everything else to it is dropped (the
// DROP rule counts it), the switch's own address stays open. The switch's
// ARP requests into the subnet carry the virtual MAC and a virtual IP, the
// other one once the first leaves; with none left, the switch's own binding
// comes back and the addresses are open again.
TEST_F(TrafficTest, VirtualIpsAnswerPingsDropTheRestAndSourceTheSubnetsArpRequests) {
  AgentRun agent({"10.10.2.1", "10.10.2.2"}, {"2001:db8:2::1"});
  ASSERT_TRUE(eventually([&] {
    return dropped("iptables", "10.10.2.1") >= 0 && dropped("ip6tables", "2001:db8:2::1") >= 0;
  })) << agent.err();
  EXPECT_NE(agent.err().find("acl-agent: arptables: stock ("), std::string::npos) << agent.err();
  for (const auto& [tool, vip, own] :
       {std::tuple{"iptables", "10.10.2.1", "10.10.2.254"},
        std::tuple{"ip6tables", "2001:db8:2::1", "2001:db8:2::fe"}}) {
    EXPECT_TRUE(run(nb + "ping -c 1 -W 2 -q " + vip + " >/dev/null 2>&1")) << vip;
    const long before = dropped(tool, vip);
    EXPECT_FALSE(reaches(vip)) << vip;
    EXPECT_GT(dropped(tool, vip), before) << vip;
    EXPECT_TRUE(reaches(own)) << own;
  }

  ArpSender seen;
  ASSERT_TRUE(eventually([&] {
    seen = arpSenderSeen();
    return seen.first == vmac && (seen.second == "10.10.2.1" || seen.second == "10.10.2.2");
  })) << seen.first
      << " " << seen.second << "\n"
      << agent.err();
  const std::string other = seen.second == "10.10.2.1" ? "10.10.2.2" : "10.10.2.1";
  for (const auto& [vips, expected] :
       {std::pair{std::vector{other}, ArpSender{vmac, other}},
        std::pair{std::vector<std::string>{}, ArpSender{swMac, "10.10.2.254"}}}) {
    agent.publish(vips, {});
    EXPECT_TRUE(eventually([&] { return (seen = arpSenderSeen()) == expected; }))
        << seen.first << " " << seen.second << "\n"
        << agent.err();
  }
  ASSERT_TRUE(eventually([&] {
    return dropped("iptables", "10.10.2.1") < 0 && dropped("ip6tables", "2001:db8:2::1") < 0;
  })) << agent.err();
  EXPECT_TRUE(reaches("10.10.2.1") && reaches("2001:db8:2::1"));
}

}  // namespace
