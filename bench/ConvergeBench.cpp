// Convergence of the agent's wiring (publisher, plug-in, appliers, real event
// loop) on the real kernel, inside a private network + mount namespace:
// install and withdraw N virtual IPs in a VRF namespace with --apply per-line,
// with --apply batch, and with a bare system() loop over the very same lines;
// plus, with commands stubbed, the decision cost and memory per pair, the
// longest loop stall, and the commands one changed virtual IP costs.
//
//   converge_bench [--sizes 100,1000,5000] [--per-line-up-to N] [--stub-pairs V,I]
//                  [--trace VirtualIpArpMangleSm/5]
//
// Each run is a forked child: the plug-in initialises once per process.
// arptables is the host's real one, reached through the agent's dialect
// adapter as with --arptables=stock.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "agent/source/Publisher.h"
#include "agent/apply/Appliers.h"
#include "agent/apply/BatchApplier.h"
#include "agent/arptables/ArptablesDialect.h"
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
  explicit Harness(Kiv::Ptr<Acl::CommandApplier> inner)
      : loop(new Kiv::ActivityManager(new Kiv::MonotonicClock())),
        em(new Mirel::EntityManager()),
        publisher(em),
        applier(new RecordingApplier(std::move(inner))) {
    Kiv::activityManagerIs(loop);
    loop->afterCallbackIs([this] {
      applier->doApplyPending();
      const auto now = Clock::now();
      const double took = std::chrono::duration<double>(now - lastEnd).count();
      busy += took;
      longest = std::max(longest, took);
      lastEnd = now;
    });
    publisher.publish(Agent::parseStateDocument(document(0, 0)));
    Acl::DefaultPluginLoader().doInit(new Acl::PluginContext(em, applier));
    converge();
  }
  // Runs the loop until nothing is queued or due; returns the wall time.
  double converge() {
    const auto start = Clock::now();
    busy = longest = 0;
    while (!loop->idle()) {
      lastEnd = Clock::now();
      loop->runUntilIdle();
      const double wait = loop->nextTimerTime() - loop->now();
      if (std::isfinite(wait) && wait > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(wait));
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
  Clock::time_point lastEnd;
  double busy = 0, longest = 0;
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
};

std::string format(const Converged& c) {
  std::ostringstream o;
  o << c.install << ' ' << c.withdraw << ' ' << c.stall << ' ' << c.installLines << ' '
    << c.withdrawLines << ' ' << c.processes;
  return o.str();
}
Converged parse(const std::string& s) {
  Converged c;
  std::istringstream(s) >> c.install >> c.withdraw >> c.stall >> c.installLines >>
      c.withdrawLines >> c.processes;
  return c;
}

const char* kLines = "/tmp/converge_bench.lines";

// The agent with one applier: install N, withdraw all. Batch also leaves its
// lines for the bare loop.
Converged runAgent(bool batch, int n) {
  return parse(inChild([&] {
    Agent::ApplyStats stats;
    Agent::Runner runner(stats);
    Agent::KnownAbsent absent;
    Kiv::Ptr<Acl::CommandApplier> inner;
    if (batch)
      inner = new Agent::BatchApplier(runner, absent);
    else
      inner = new Agent::PerLineApplier(runner, absent);
    Harness h(inner);
    const auto before = stats.perTool();
    Converged c;
    c.install = h.publish(document(n, 1));
    c.stall = h.longest;
    const std::vector<std::string> install = h.applier->lines;
    c.withdraw = h.publish(document(0, 0));
    c.stall = std::max(c.stall, h.longest);
    c.installLines = install.size();
    c.withdrawLines = h.applier->lines.size();
    for (const auto& [tool, counts] : stats.perTool())
      if (tool.ends_with("-restore") || !batch)
        c.processes += counts.run - (before.count(tool) ? before.at(tool).run : 0);
    if (batch) {
      // Lines run by themselves (arptables) are processes too.
      c.processes += stats.perTool().count("arptables") ? stats.perTool().at("arptables").run : 0;
      std::ofstream f(kLines);
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
  std::vector<int> stub = {10000, 4};
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--sizes"))
      sizes = numbers(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--per-line-up-to"))
      perLineUpTo = std::atoi(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--stub-pairs"))
      stub = numbers(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--trace"))
      Kiv::traceConfigIs(argv[i + 1]);
  }
  const std::string why = enterSandbox(StandIns::off);
  if (!why.empty()) {
    std::fprintf(stderr, "converge_bench: no sandbox: %s\n", why.c_str());
    return 77;
  }
  if (!Agent::doChooseArptablesDialect(Agent::ArptablesDialect::stock, [] { return false; })) return 1;
  if (std::system("ip netns add ns-bench") != 0) return 1;
  std::printf(
      "| VIPs | lines in / out | mode | processes | install s | withdraw s | "
      "longest stall ms |\n|---|---|---|---|---|---|---|\n");
  for (int n : sizes) {
    const Converged batch = runAgent(true, n);
    const bool slow = n > perLineUpTo;
    Converged bare, perLine;
    if (!slow) bare = runBare();
    if (!slow) perLine = runAgent(false, n);
    auto row = [&](const char* mode, const Converged& c, bool skipped) {
      if (skipped) {
        std::printf("| %d | | %s | | skipped (--per-line-up-to %d) | | |\n", n, mode, perLineUpTo);
        return;
      }
      std::printf("| %d | %zu / %zu | %s | %zu | %.3f | %.3f | %s |\n", n, c.installLines,
                  c.withdrawLines, mode, c.processes, c.install, c.withdraw,
                  c.stall < 0 ? "" : std::to_string(c.stall * 1e3).substr(0, 6).c_str());
    };
    row("bare system()", bare, slow);
    row("per-line", perLine, slow);
    row("batch", batch, false);
    if (!slow)
      std::printf(
          "| %d | | per-line / bare | | %.3fx | %.3fx | |\n| %d | | per-line / batch | | "
          "%.1fx | %.1fx | |\n",
          n, perLine.install / bare.install, perLine.withdraw / bare.withdraw, n,
          perLine.install / batch.install, perLine.withdraw / batch.withdraw);
    std::fflush(stdout);
  }
  if (stub.size() == 2) runStub(stub[0], stub[1]);
  return 0;
}
