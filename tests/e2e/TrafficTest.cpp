// The whole product on the wire: the built acl-agent, its plug-in and the
// arptables adapter against the real iptables, ip6tables and arptables, with
// real packets between a "switch" namespace (the sandbox's own for the
// default VRF, ns-red for VRF red) and a "neighbour" namespace joined to it
// by a veth pair. Everything lives in the test's private sandbox.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

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
const int port = 7000;

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
  std::string ownMac() const { return "02:00:00:00:0" + std::to_string(n) + ":fe"; }
};

void PrintTo(const Site& s, std::ostream* o) {
  *o << s.name;
}

// The prefix that runs a command in namespace ns ("default": the sandbox's own).
std::string at(const std::string& ns) {
  return ns == "default" ? "" : "ip netns exec " + ns + " ";
}

std::string output(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[512];
    while (std::fgets(buf, sizeof buf, p)) out += buf;
    ::pclose(p);
  }
  return out;
}

bool run(const std::string& command) {
  return std::system(command.c_str()) == 0;
}

// Polls until f holds, for at most `seconds`.
bool eventually(const std::function<bool()>& f, double seconds = 10) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!f()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

struct Fd {
  int fd;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

sockaddr_storage socketAddress(const std::string& ip, int p) {
  sockaddr_storage ss{};
  if (auto* a = reinterpret_cast<sockaddr_in*>(&ss);
      ::inet_pton(AF_INET, ip.c_str(), &a->sin_addr)) {
    a->sin_family = AF_INET;
    a->sin_port = htons(p);
  } else if (auto* b = reinterpret_cast<sockaddr_in6*>(&ss);
             ::inet_pton(AF_INET6, ip.c_str(), &b->sin6_addr)) {
    b->sin6_family = AF_INET6;
    b->sin6_port = htons(p);
  }
  return ss;
}

// A TCP listener on every address of `family` in namespace ns.
int listenAt(const std::string& ns, int family) {
  const int fd = Dravo::socketAt(family, SOCK_STREAM, 0, Dravo::NamespaceName(ns));
  const int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (family == AF_INET6) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
  sockaddr_storage any = socketAddress(family == AF_INET ? "0.0.0.0" : "::", port);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) != 0 || ::listen(fd, 8) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Whether a TCP connection from namespace ns to ip:port is made within a second.
bool connects(const std::string& ns, const std::string& ip) {
  sockaddr_storage to = socketAddress(ip, port);
  Fd s(Dravo::socketAt(to.ss_family, SOCK_STREAM | SOCK_NONBLOCK, 0, Dravo::NamespaceName(ns)));
  if (s.fd < 0) return false;
  if (::connect(s.fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0) return true;
  pollfd p{s.fd, POLLOUT, 0};
  int err = errno;
  socklen_t len = sizeof err;
  return err == EINPROGRESS && ::poll(&p, 1, 1000) == 1 &&
         ::getsockopt(s.fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0;
}

bool pings(const std::string& ns, const std::string& ip) {
  return run(at(ns) + "ping -c 1 -W 2 -q " + ip + " >/dev/null 2>&1");
}

// Packets counted by the DROP rule for ip in mangle PREROUTING; -1: no such rule.
long dropped(const std::string& tool, const std::string& ns, const std::string& ip) {
  std::istringstream lines(output(at(ns) + tool + " -t mangle -L PREROUTING -v -n -x"));
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" DROP ") == std::string::npos || line.find(" " + ip + " ") == std::string::npos)
      continue;
    return std::stol(line);
  }
  return -1;
}

// The sender of an ARP request, as the neighbour sees it on the wire.
struct ArpSender {
  std::string mac, ip;
  bool operator==(const ArpSender&) const = default;
};
std::ostream& operator<<(std::ostream& o, const ArpSender& s) {
  return o << "{" << s.mac << ", " << s.ip << "}";
}

// Makes the switch resolve a fresh address of the site's subnet and reads
// the request it sends with a raw packet socket on the neighbour's side.
ArpSender arpSenderSeen(const Site& site) {
  static int next = 100;
  const std::string target = site.v4(next++ % 100 + 100);
  Fd raw(Dravo::socketAt(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP), Dravo::NamespaceName(site.nb())));
  Fd udp(Dravo::socketAt(AF_INET, SOCK_DGRAM, 0, Dravo::NamespaceName(site.ns)));
  sockaddr_storage to = socketAddress(target, 9);
  if (raw.fd < 0 || udp.fd < 0 ||
      ::sendto(udp.fd, "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof(sockaddr_in)) != 1)
    return {};
  pollfd p{raw.fd, POLLIN, 0};
  unsigned char f[128];
  while (::poll(&p, 1, 1000) == 1) {
    // Ethernet header, then the ARP body: op at 20, sha at 22, spa at 28, tpa at 38.
    if (::recv(raw.fd, f, sizeof f, 0) < 42 || f[21] != 1) continue;
    char tpa[INET_ADDRSTRLEN], spa[INET_ADDRSTRLEN], sha[18];
    ::inet_ntop(AF_INET, f + 38, tpa, sizeof tpa);
    if (tpa != target) continue;
    ::inet_ntop(AF_INET, f + 28, spa, sizeof spa);
    std::snprintf(sha, sizeof sha, "%02x:%02x:%02x:%02x:%02x:%02x", f[22], f[23], f[24], f[25],
                  f[26], f[27]);
    return {sha, spa};
  }
  return {};
}

// acl-agent as a child process on a state document that the test replaces.
class AgentRun {
 public:
  AgentRun(const Site& site, const std::string& dialect, const std::vector<std::string>& vips4,
           const std::vector<std::string>& vips6 = {})
      : site_(site) {
    char d[] = "/tmp/fhrp-traffic-XXXXXX";
    dir_ = ::mkdtemp(d);
    publish(vips4, vips6);
    pid_ = ::fork();
    if (pid_ == 0) {
      const int err = ::open((dir_ + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      ::dup2(err, 2);
      const std::string arp = "--arptables=" + dialect;
      const std::string control = "--control=" + dir_ + "/control.sock";
      ::execl(FHRP_AGENT, FHRP_AGENT, "--state", (dir_ + "/state.json").c_str(), arp.c_str(),
              control.c_str(), nullptr);
      ::_exit(127);
    }
  }
  ~AgentRun() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
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
    const std::string vrfs = site_.vrf == "default"
                                 ? ""
                                 : "\"" + site_.vrf + "\": {\"namespace\": \"" + site_.ns + "\"}";
    std::ofstream(dir_ + "/next.json")
        << "{\"interfaces\": {\"Sw\": {\"device\": \"" << site_.dev << "\"}}, \"vrfs\": {" << vrfs
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

class TrafficTest : public ::testing::TestWithParam<Site> {
 protected:
  void SetUp() override {
    if (!SandboxEnvironment::reason.empty()) GTEST_SKIP() << SandboxEnvironment::reason;
    if (!run("command -v ping >/dev/null")) GTEST_SKIP() << "ping is not installed";
    const Site& s = GetParam();
    const std::string sw = at(s.ns), nb = at(s.nb());
    if (s.ns != "default") {
      ASSERT_TRUE(run("ip netns add " + s.ns + " && " + sw + "ip link set lo up"));
    }
    ASSERT_TRUE(run("ip netns add " + s.nb() + " && " + nb + "ip link set lo up"));
    ASSERT_TRUE(run(sw + "ip link add " + s.dev + " address " + s.ownMac() +
                    " type veth peer name nb0 address 02:00:00:00:0" + std::to_string(s.n) +
                    ":10 netns " + s.nb()));
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
    ASSERT_TRUE(run(sw + "ip neigh replace " + s.v4(10) + " lladdr 02:00:00:00:0" +
                    std::to_string(s.n) + ":10 dev " + s.dev + " nud permanent"));
    for (int host : {1, 2, 254})
      ASSERT_TRUE(run(nb + "ip neigh replace " + s.v4(host) + " lladdr " + s.ownMac() +
                      " dev nb0 nud permanent"));
  }
  void TearDown() override {
    const Site& s = GetParam();
    // The veth pair goes with the neighbour's namespace.
    run("ip netns del " + s.nb() + " 2>/dev/null");
    if (s.ns != "default") run("ip netns del " + s.ns + " 2>/dev/null");
  }
};

// Pings to a virtual IP are answered, everything else to it is dropped (the
// DROP rule counts it), the switch's own address stays open, and a
// withdrawn virtual IP is open again. IPv6 pings need neighbour discovery.
TEST_P(TrafficTest, VirtualIpsAnswerPingsAndNothingElse) {
  const Site& s = GetParam();
  Fd l4(listenAt(s.ns, AF_INET)), l6(listenAt(s.ns, AF_INET6));
  ASSERT_GE(l4.fd, 0);
  ASSERT_GE(l6.fd, 0);
  AgentRun agent(s, "stock", {s.v4(1)}, {s.v6("1")});
  ASSERT_TRUE(eventually([&] {
    return dropped("iptables", s.ns, s.v4(1)) >= 0 && dropped("ip6tables", s.ns, s.v6("1")) >= 0;
  })) << agent.err();

  for (const auto& [tool, vip, own] : {std::tuple{"iptables", s.v4(1), s.v4(254)},
                                       std::tuple{"ip6tables", s.v6("1"), s.v6("fe")}}) {
    EXPECT_TRUE(pings(s.nb(), vip)) << vip;
    const long before = dropped(tool, s.ns, vip);
    EXPECT_FALSE(connects(s.nb(), vip)) << vip;
    EXPECT_GT(dropped(tool, s.ns, vip), before) << vip;
    EXPECT_TRUE(connects(s.nb(), own)) << own;
  }

  agent.publish({}, {});
  ASSERT_TRUE(eventually([&] {
    return dropped("iptables", s.ns, s.v4(1)) < 0 && dropped("ip6tables", s.ns, s.v6("1")) < 0;
  })) << agent.err();
  EXPECT_TRUE(connects(s.nb(), s.v4(1)));
  EXPECT_TRUE(connects(s.nb(), s.v6("1")));
}

// The switch's ARP requests into the subnet carry the virtual MAC and a
// virtual IP; the source moves to the other virtual IP when it leaves, and
// the switch's own binding comes back with the last one. The agent picks
// the stock dialect by itself.
TEST_P(TrafficTest, ArpRequestsCarryTheVirtualRouter) {
  const Site& s = GetParam();
  AgentRun agent(s, "auto", {s.v4(1), s.v4(2)});
  ArpSender seen;
  ASSERT_TRUE(eventually([&] {
    seen = arpSenderSeen(s);
    return seen.mac == vmac && (seen.ip == s.v4(1) || seen.ip == s.v4(2));
  })) << seen
      << "\n"
      << agent.err();
  EXPECT_NE(agent.err().find("acl-agent: arptables: stock ("), std::string::npos) << agent.err();

  const std::string other = seen.ip == s.v4(1) ? s.v4(2) : s.v4(1);
  agent.publish({other}, {});
  const ArpSender switched{vmac, other};
  EXPECT_TRUE(eventually([&] { return (seen = arpSenderSeen(s)) == switched; })) << seen << "\n"
                                                                                 << agent.err();

  agent.publish({}, {});
  const ArpSender own{s.ownMac(), s.v4(254)};
  EXPECT_TRUE(eventually([&] { return (seen = arpSenderSeen(s)) == own; })) << seen << "\n"
                                                                            << agent.err();
}

INSTANTIATE_TEST_SUITE_P(Vrfs, TrafficTest,
                         ::testing::Values(Site{"Default", "default", "default", "vlan10", 1},
                                           Site{"Red", "red", "ns-red", "vlan20", 2}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
