// Convergence of the agent's wiring (publisher, plug-in, appliers, real event
// loop) on the real kernel, inside a private network + mount namespace:
// install and withdraw N virtual IPs in a VRF namespace with --apply per-line,
// with --apply batch, with --apply nft, with a bare system() loop over the
// very same lines and with one bare `nft -f` of the same elements; the cost
// per packet to the host with the rules of 0 and N virtual IPs in place
// (iptables through batch, nft); many VRF namespaces with a few virtual IPs
// each (start-up, install, withdraw); plus, with commands stubbed, the
// decision cost and memory per pair, the longest loop stall, and the
// commands one changed virtual IP costs.
//
//   converge_bench [--sizes 100,1000,5000] [--per-line-up-to N] [--batch-up-to N]
//                  [--rounds R] [--stub-pairs V,I] [--namespaces VRFS,VIPS]
//                  [--trace AclAgent/5]
//
// --rounds R runs batch, nft and the bare `nft -f` R times per size (batch
// once above 5,000: its withdrawals take minutes) and shows each field's
// median: one run of 20 ms is mostly where the plug-in's 10 ms timer tick
// happened to fall.
//
// Each run is a forked child: the plug-in initialises once per process.
// arptables is the host's real one, reached through the agent's dialect
// adapter as with --arptables=stock.
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "agent/apply/Appliers.h"
#include "agent/apply/BatchApplier.h"
#include "agent/apply/nft/NftApplier.h"
#include "agent/apply/nft/NftTables.h"
#include "agent/arptables/ArptablesDialect.h"
#include "agent/source/Publisher.h"
#include "platform/acl/PluginLoader.h"
#include "platform/kiv/ActivityManager.h"
#include "platform/kiv/Trace.h"
#include "tests/support/Sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// V virtual IPs in the VRF "bench" (namespace ns-bench), each on `perVip` of
// four interfaces; 64 per /24 subnet, so subnets' arptables rules move as
// virtual IPs come and go. The `changed` one takes another address.
std::string document(int vips, int perVip, int changed = -1) {
  std::ostringstream d;
  d << R"({"interfaces": {"Vlan1": {"device": "vlan1"}, "Vlan2": {"device": "vlan2"},)"
    << R"( "Vlan3": {"device": "vlan3"}, "Vlan4": {"device": "vlan4"}},)"
    << R"( "vrfs": {"bench": {"state": "active", "namespace": "ns-bench"}},)"
    << R"( "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"}, "virtualIps": [)";
  for (int i = 0; i < vips; ++i) {
    const int subnet = i / 64;
    d << (i ? "," : "") << R"({"vrf": "bench", "address": "10.)" << 1 + subnet / 250 << '.'
      << subnet % 250 << '.' << i % 64 + (i == changed ? 101 : 1) << R"(/24", "interfaces": [)";
    for (int k = 0; k < perVip; ++k) {
      const int intf = (subnet + k) % 4 + 1;
      d << (k ? "," : "") << "\"Vlan" << intf << '"';
    }
    d << "]}";
  }
  d << "]}";
  return d.str();
}

// `vrfs` VRFs (namespaces ns-b0...), `vips` virtual IPs each on Vlan1.
std::string vrfDocument(int vrfs, int vips) {
  std::ostringstream d;
  d << R"({"interfaces": {"Vlan1": {"device": "vlan1"}}, "vrfs": {)";
  for (int v = 0; v < vrfs; ++v)
    d << (v ? "," : "") << "\"b" << v << R"(": {"state": "active", "namespace": "ns-b)" << v
      << "\"}";
  d << R"(}, "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"}, "virtualIps": [)";
  for (int v = 0; v < vrfs; ++v)
    for (int i = 0; i < vips; ++i)
      d << (v || i ? "," : "") << R"({"vrf": "b)" << v << R"(", "address": "10.)" << v / 250 << '.'
        << v % 250 << '.' << i + 1 << R"(/24", "interfaces": ["Vlan1"]})";
  d << "]}";
  return d.str();
}

// Passes lines on, keeping a copy of those handed over while recording.
class RecordingApplier : public Acl::CommandApplier {
 public:
  explicit RecordingApplier(Kiv::Ptr<Acl::CommandApplier> inner) : inner_(std::move(inner)) {}
  int lineIs(const std::string& line, FailureReport report) override {
    if (recording) lines.push_back(line);
    return inner_->lineIs(line, std::move(report));
  }
  void doApplyPending() override { inner_->doApplyPending(); }
  bool recording = false;
  std::vector<std::string> lines;

 private:
  Kiv::Ptr<Acl::CommandApplier> inner_;
};

// Takes every line as succeeded without running it.
class StubApplier : public Acl::CommandApplier {
 public:
  int lineIs(const std::string&, FailureReport) override { return 0; }
};

// The agent's wiring without its files and signals.
struct Harness {
  explicit Harness(Kiv::Ptr<Acl::CommandApplier> inner, const std::string& initial = document(0, 0))
      : loop(new Kiv::ActivityManager(new Kiv::MonotonicClock())),
        em(new Mirel::EntityManager()),
        publisher(em),
        applier(new RecordingApplier(std::move(inner))) {
    Kiv::activityManagerIs(loop);
    // A stall: one callback with the after-callback hook (the applier's step).
    loop->beforeCallbackIs([this] { began = Clock::now(); });
    loop->afterCallbackIs([this] {
      applier->doApplyPending();
      const double took = std::chrono::duration<double>(Clock::now() - began).count();
      busy += took;
      longest = std::max(longest, took);
    });
    publisher.publish(Agent::parseStateDocument(initial));
    const auto start = Clock::now();
    Acl::DefaultPluginLoader().doInit(new Acl::PluginContext(em, applier));
    converge();
    startUp = secondsSince(start);
  }
  // Runs the loop until nothing is queued or due; returns the wall time.
  double converge() {
    const auto start = Clock::now();
    busy = longest = 0;
    while (!loop->idle()) {
      loop->runUntilIdle();
      // Waits for the next timer or a descriptor (a restore's exit).
      if (!loop->idle()) loop->runOnce(std::min(1.0, loop->nextTimerTime() - loop->now()));
    }
    return secondsSince(start);
  }
  double publish(const std::string& doc) {
    applier->lines.clear();
    applier->recording = true;
    publisher.publish(Agent::parseStateDocument(doc));
    return converge();
  }

  Kiv::Ptr<Kiv::ActivityManager> loop;
  Kiv::Ptr<Mirel::EntityManager> em;
  Agent::Publisher publisher;
  Kiv::Ptr<RecordingApplier> applier;
  Clock::time_point began;
  double busy = 0, longest = 0, startUp = 0;
};

// Runs `job` in a child; returns what it printed.
template <class Job>
std::string inChild(Job job) {
  int fds[2];
  if (::pipe(fds) != 0) std::abort();
  std::fflush(nullptr);  // nothing buffered may be written twice
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    const std::string out = job();
    [[maybe_unused]] ssize_t n = ::write(fds[1], out.data(), out.size());
    std::fflush(nullptr);
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string out;
  char buf[4096];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof buf)) > 0) out.append(buf, n);
  ::close(fds[0]);
  ::waitpid(pid, nullptr, 0);
  return out;
}

struct Converged {
  double install = 0, withdraw = 0, stall = -1;  // stall < 0: not measured
  std::size_t installLines = 0, withdrawLines = 0, processes = 0;
  double packetBefore = -1, packetAfter = -1;  // ns per packet; < 0: not measured
  double startUp = 0;
};

// Each field's median over the rounds.
Converged medianOf(std::vector<Converged> runs) {
  auto median = [&](double Converged::*f) {
    std::vector<double> v;
    for (const Converged& c : runs) v.push_back(c.*f);
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  Converged m = runs.front();
  for (double Converged::*f :
       {&Converged::install, &Converged::withdraw, &Converged::stall, &Converged::packetBefore,
        &Converged::packetAfter, &Converged::startUp})
    m.*f = median(f);
  return m;
}

std::string format(const Converged& c) {
  std::ostringstream o;
  o << c.install << ' ' << c.withdraw << ' ' << c.stall << ' ' << c.installLines << ' '
    << c.withdrawLines << ' ' << c.processes << ' ' << c.packetBefore << ' ' << c.packetAfter << ' '
    << c.startUp;
  return o.str();
}
Converged parse(const std::string& s) {
  Converged c;
  std::istringstream(s) >> c.install >> c.withdraw >> c.stall >> c.installLines >>
      c.withdrawLines >> c.processes >> c.packetBefore >> c.packetAfter >> c.startUp;
  return c;
}

// What one UDP packet to the host costs in namespace `ns`, in ns: a child
// enters it and sends small datagrams over its loopback to a bound socket
// (the receive path, PREROUTING included, runs in the sender's context);
// the best of five rounds.
double packetCost(const std::string& ns) {
  const std::string out = inChild([&] {
    const int fd = ::open(("/run/netns/" + ns).c_str(), O_RDONLY);
    if (fd < 0 || ::setns(fd, CLONE_NEWNET) != 0) return std::string("-1");
    const int rx = ::socket(AF_INET, SOCK_DGRAM, 0), tx = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9999);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(rx, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) return std::string("-1");
    const char payload[16] = {};
    char sink[64];
    double best = 1e9;
    for (int round = 0; round < 5; ++round) {
      const int n = 50000;
      const auto start = Clock::now();
      for (int i = 0; i < n; ++i) {
        [[maybe_unused]] ssize_t s =
            ::sendto(tx, payload, sizeof payload, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        [[maybe_unused]] ssize_t r = ::recv(rx, sink, sizeof sink, MSG_DONTWAIT);
      }
      best = std::min(best, secondsSince(start) / n * 1e9);
    }
    return std::to_string(best);
  });
  return std::atof(out.c_str());
}

const char* kLines = "/tmp/converge_bench.lines";

enum class Mode { perLine, batch, nft };

Kiv::Ptr<Acl::CommandApplier> applierOf(Mode mode, Agent::Runner& runner,
                                        Agent::KnownAbsent& absent) {
  if (mode == Mode::batch) return new Agent::BatchApplier(runner, absent);
  if (mode == Mode::nft) return new Agent::Nft::NftApplier(runner.stats(), absent);
  return new Agent::PerLineApplier(runner, absent);
}

const char* kNftLines = "/tmp/converge_bench.nft-lines";

// The agent with one applier: install N, withdraw all; the cost per packet
// before and with the N in place. Batch also leaves its lines for the bare
// loop, nft for the bare `nft -f`.
Converged runAgent(Mode mode, int n) {
  const bool batch = mode == Mode::batch;
  return parse(inChild([&] {
    Agent::ApplyStats stats;
    Agent::Runner runner(stats);
    Agent::KnownAbsent absent;
    Harness h(applierOf(mode, runner, absent));
    const auto before = stats.perTool();
    Converged c;
    if (mode != Mode::perLine) c.packetBefore = packetCost("ns-bench");
    c.install = h.publish(document(n, 1));
    c.stall = h.longest;
    if (mode != Mode::perLine) c.packetAfter = packetCost("ns-bench");
    const std::vector<std::string> install = h.applier->lines;
    c.withdraw = h.publish(document(0, 0));
    c.stall = std::max(c.stall, h.longest);
    c.installLines = install.size();
    c.withdrawLines = h.applier->lines.size();
    for (const auto& [tool, counts] : stats.perTool())
      if (tool.ends_with("-restore") || mode == Mode::perLine)
        c.processes += counts.run - (before.count(tool) ? before.at(tool).run : 0);
    if (batch) {
      // Lines run by themselves (arptables) are processes too.
      c.processes += stats.perTool().count("arptables") ? stats.perTool().at("arptables").run : 0;
      std::ofstream f(kLines);
      f << install.size() << '\n';
      for (const auto& l : install) f << l << '\n';
      for (const auto& l : h.applier->lines) f << l << '\n';
    }
    if (mode == Mode::nft) {
      std::ofstream f(kNftLines);
      f << install.size() << '\n';
      for (const auto& l : install) f << l << '\n';
      for (const auto& l : h.applier->lines) f << l << '\n';
    }
    return format(c);
  }));
}

// system() on each recorded line, after the agent's own start-up flush.
Converged runBare() {
  return parse(inChild([] {
    Agent::ApplyStats stats;
    Agent::Runner runner(stats);
    Agent::KnownAbsent absent;
    Harness h(new Agent::PerLineApplier(runner, absent));
    std::ifstream f(kLines);
    std::size_t installCount = 0;
    f >> installCount;
    f.ignore();
    std::vector<std::string> lines;
    for (std::string l; std::getline(f, l);) lines.push_back(l);
    Converged c;
    auto start = Clock::now();
    for (std::size_t i = 0; i < installCount; ++i)
      [[maybe_unused]] int s = std::system(lines[i].c_str());
    c.install = secondsSince(start);
    start = Clock::now();
    for (std::size_t i = installCount; i < lines.size(); ++i)
      [[maybe_unused]] int s = std::system(lines[i].c_str());
    c.withdraw = secondsSince(start);
    c.installLines = installCount;
    c.withdrawLines = lines.size() - installCount;
    c.processes = lines.size();
    return format(c);
  }));
}

// One `nft -f` of the recorded nft run's element changes and ARP rules, in
// and out (ARP rules out by one flush of the chain), after the agent's own
// start-up made the tables.
Converged runBareNft() {
  return parse(inChild([] {
    Agent::ApplyStats stats;
    Agent::Runner runner(stats);
    Agent::KnownAbsent absent;
    Harness h(new Agent::Nft::NftApplier(stats, absent));
    std::ifstream f(kNftLines);
    std::size_t installCount = 0;
    f >> installCount;
    f.ignore();
    Agent::Nft::Script in, out;
    bool arpOut = false;
    std::size_t i = 0;
    for (std::string l; std::getline(f, l); ++i) {
      const std::optional<Agent::Nft::Change> c = Agent::Nft::changeOf(l);
      if (!c) continue;
      Agent::Nft::Script& s = i < installCount ? in : out;
      if (c->family != Agent::Nft::Family::arp)
        s.elementIs(*c);
      else if (c->op == Agent::Nft::Op::add)
        s.arpRuleIs(*c);
      else
        arpOut = true;
    }
    const std::set<Agent::Nft::Family> ready = {Agent::Nft::Family::ip, Agent::Nft::Family::ip6,
                                                Agent::Nft::Family::arp};
    std::ofstream("/tmp/converge_bench.in.nft") << in.text(ready);
    std::ofstream("/tmp/converge_bench.out.nft")
        << out.text(ready) << (arpOut ? "flush chain arp acl-agent output\n" : "");
    Converged c;
    auto start = Clock::now();
    c.processes = 2;
    if (std::system("ip netns exec ns-bench nft -f /tmp/converge_bench.in.nft") != 0)
      c.processes = 0;
    c.install = secondsSince(start);
    start = Clock::now();
    if (std::system("ip netns exec ns-bench nft -f /tmp/converge_bench.out.nft") != 0)
      c.processes = 0;
    c.withdraw = secondsSince(start);
    c.installLines = installCount;
    c.withdrawLines = i - installCount;
    return format(c);
  }));
}

// `vrfs` VRF namespaces with `vips` virtual IPs each: start-up (the flush
// of every namespace), install, withdraw.
Converged runNamespaces(Mode mode, int vrfs, int vips) {
  return parse(inChild([&] {
    Agent::ApplyStats stats;
    Agent::Runner runner(stats);
    Agent::KnownAbsent absent;
    Harness h(applierOf(mode, runner, absent), vrfDocument(vrfs, 0));
    Converged c;
    c.startUp = h.startUp;
    c.install = h.publish(vrfDocument(vrfs, vips));
    c.installLines = h.applier->lines.size();
    c.stall = h.longest;
    c.withdraw = h.publish(vrfDocument(vrfs, 0));
    c.withdrawLines = h.applier->lines.size();
    c.stall = std::max(c.stall, h.longest);
    return format(c);
  }));
}

// Commands stubbed: decision cost and memory per pair, one changed virtual IP.
void runStub(int vips, int perVip) {
  std::printf("%s", inChild([&] {
                      std::ostringstream o;
                      Harness h(new StubApplier());
                      const std::string doc = document(vips, perVip);
                      const std::size_t heap = mallinfo2().uordblks;
                      h.publish(doc);
                      const double pairs = double(vips) * perVip;
                      const double heapAfter = double(mallinfo2().uordblks);
                      o << "stubbed commands, " << vips << " x " << perVip << " pairs: decisions "
                        << h.busy / pairs * 1e6 << " us per pair (busy loop time), longest stall "
                        << h.longest * 1e3 << " ms, heap "
                        << (heapAfter - double(heap)) / pairs / 1024
                        << " KiB per pair (publisher inputs + plug-in records)\n";
                      h.publish(document(vips, perVip, vips / 2));
                      o << "one virtual IP changing its address among " << vips << ": "
                        << h.applier->lines.size() << " command lines\n";
                      return o.str();
                    }).c_str());
}

std::vector<int> numbers(const char* text) {
  std::vector<int> v;
  std::stringstream s(text);
  for (std::string item; std::getline(s, item, ',');) v.push_back(std::atoi(item.c_str()));
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes = {100, 1000, 5000};
  int perLineUpTo = 1000;
  int batchUpTo = 1 << 30;  // batch withdraws 20,000 in minutes
  int rounds = 1;
  std::vector<int> stub = {10000, 4};
  std::vector<int> namespaces = {100, 10};
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--sizes"))
      sizes = numbers(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--per-line-up-to"))
      perLineUpTo = std::atoi(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--rounds"))
      rounds = std::max(1, std::atoi(argv[i + 1]));
    else if (!std::strcmp(argv[i], "--batch-up-to"))
      batchUpTo = std::atoi(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--stub-pairs"))
      stub = numbers(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--namespaces"))
      namespaces = numbers(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--trace"))
      Kiv::traceConfigIs(argv[i + 1]);
  }
  const std::string why = enterSandbox(StandIns::off);
  if (!why.empty()) {
    std::fprintf(stderr, "converge_bench: no sandbox: %s\n", why.c_str());
    return 77;
  }
  if (!Agent::doChooseArptablesDialect(Agent::ArptablesDialect::stock, [] { return true; }))
    return 1;
  if (std::system("ip netns add ns-bench && ip -n ns-bench link set lo up") != 0) return 1;
  if (rounds > 1)
    std::printf("Medians of %d rounds (batch above 5,000 virtual IPs: one round).\n\n", rounds);
  std::printf(
      "| VIPs | lines in / out | mode | processes | install s | withdraw s | "
      "longest stall ms | ns per packet, none / VIPs in place |\n"
      "|---|---|---|---|---|---|---|---|\n");
  for (int n : sizes) {
    const bool noBatch = n > batchUpTo;
    std::vector<Converged> batches, nfts, bares;
    for (int r = 0; r < rounds; ++r) {
      // The bare loop replays the last batch run's lines, the bare nft -f the last nft run's.
      if (!noBatch && (r == 0 || n <= 5000)) batches.push_back(runAgent(Mode::batch, n));
      nfts.push_back(runAgent(Mode::nft, n));
      bares.push_back(runBareNft());
    }
    const Converged batch = noBatch ? Converged{} : medianOf(batches);
    const Converged nft = medianOf(nfts), bareNft = medianOf(bares);
    const bool slow = n > perLineUpTo || noBatch;  // the bare loop replays batch's lines
    Converged bare, perLine;
    if (!slow) bare = runBare();
    if (!slow) perLine = runAgent(Mode::perLine, n);
    auto row = [&](const char* mode, const Converged& c, bool skipped) {
      if (skipped) {
        std::printf("| %d | | %s | | skipped (--%s-up-to) | | | |\n", n, mode,
                    &batch == &c ? "batch" : "per-line");
        return;
      }
      std::printf("| %d | %zu / %zu | %s | %zu | %.3f | %.3f | %s | %s |\n", n, c.installLines,
                  c.withdrawLines, mode, c.processes, c.install, c.withdraw,
                  c.stall < 0 ? "" : std::to_string(c.stall * 1e3).substr(0, 6).c_str(),
                  c.packetBefore < 0 ? ""
                                     : (std::to_string(int(c.packetBefore)) + " / " +
                                        std::to_string(int(c.packetAfter)))
                                           .c_str());
    };
    row("bare system()", bare, slow);
    row("per-line", perLine, slow);
    row("batch (iptables)", batch, noBatch);
    row("bare nft -f", bareNft, false);
    row("nft", nft, false);
    std::printf("| %d | | nft / bare nft -f | | %.2fx | %.2fx | | |\n", n,
                nft.install / bareNft.install, nft.withdraw / bareNft.withdraw);
    if (!noBatch)
      std::printf("| %d | | batch / nft | | %.1fx | %.1fx | | |\n", n, batch.install / nft.install,
                  batch.withdraw / nft.withdraw);
    if (!slow)
      std::printf(
          "| %d | | per-line / bare | | %.3fx | %.3fx | | |\n| %d | | per-line / batch | | "
          "%.1fx | %.1fx | | |\n",
          n, perLine.install / bare.install, perLine.withdraw / bare.withdraw, n,
          perLine.install / batch.install, perLine.withdraw / batch.withdraw);
    std::fflush(stdout);
  }
  if (namespaces.size() == 2) {
    std::string add;
    for (int v = 0; v < namespaces[0]; ++v) add += "ip netns add ns-b" + std::to_string(v) + "; ";
    if (std::system(add.c_str()) != 0) return 1;
    std::printf(
        "\n| VRF namespaces x VIPs | mode | start-up s | install s | withdraw s | lines in / out "
        "| longest stall ms |\n|---|---|---|---|---|---|---|\n");
    Converged m[2];
    for (Mode mode : {Mode::batch, Mode::nft}) {
      std::vector<Converged> runs;
      for (int r = 0; r < rounds; ++r)
        runs.push_back(runNamespaces(mode, namespaces[0], namespaces[1]));
      const Converged c = m[mode == Mode::nft] = medianOf(runs);
      std::printf("| %d x %d | %s | %.3f | %.3f | %.3f | %zu / %zu | %.1f |\n", namespaces[0],
                  namespaces[1], mode == Mode::nft ? "nft" : "batch", c.startUp, c.install,
                  c.withdraw, c.installLines, c.withdrawLines, c.stall * 1e3);
    }
    std::printf("| | batch / nft | %.1fx | %.1fx | %.1fx | | |\n", m[0].startUp / m[1].startUp,
                m[0].install / m[1].install, m[0].withdraw / m[1].withdraw);
  }
  if (stub.size() == 2) runStub(stub[0], stub[1]);
  return 0;
}
