// The Redis source against the document, on the real kernel inside a private
// network + mount namespace, with a real redis-server on a Unix socket there
// (no persistence), per-line apply:
//   - N virtual IPs as a document, and the same N as rows written in one
//     pipeline to an agent that holds none: time to converge, and the ratio
//     (rounds alternate the two; the median ratio is the figure);
//   - then, to the agent holding them, one row at a time: from the write to
//     its DROP rule in the kernel, median and worst of `--singles` rows.
//
//   redis_bench [--vips 1000] [--singles 20] [--rounds 3]
//
// Each run is a forked child (the plug-in initialises once per process).
#include <hiredis/hiredis.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "agent/apply/Appliers.h"
#include "agent/arptables/ArptablesDialect.h"
#include "agent/source/PhasedPublisher.h"
#include "agent/source/redis/RedisSource.h"
#include "platform/acl/PluginLoader.h"
#include "platform/kiv/ActivityManager.h"
#include "tests/support/Sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;
const char* kSocket = "/run/redis-bench.sock";

double since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// Virtual IP i of the VRF "bench": 64 per /24, on one of four interfaces.
std::string vipAddress(int i) {
  const int subnet = i / 64;
  return "10." + std::to_string(1 + subnet / 250) + "." + std::to_string(subnet % 250) + "." +
         std::to_string(i % 64 + 1) + "/24";
}
std::string vipIntf(int i) {
  return "Vlan" + std::to_string(i / 64 % 4 + 1);
}

std::string document(int vips) {
  std::ostringstream d;
  d << R"({"interfaces": {"Vlan1": {"device": "vlan1"}, "Vlan2": {"device": "vlan2"},)"
    << R"( "Vlan3": {"device": "vlan3"}, "Vlan4": {"device": "vlan4"}},)"
    << R"( "vrfs": {"bench": {"state": "active", "namespace": "ns-bench"}},)"
    << R"( "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"}, "virtualIps": [)";
  for (int i = 0; i < vips; ++i)
    d << (i ? "," : "") << R"({"vrf": "bench", "address": ")" << vipAddress(i)
      << R"(", "interfaces": [")" << vipIntf(i) << "\"]}";
  d << "]}";
  return d.str();
}

using Command = std::vector<std::string>;

std::vector<Command> baseRows() {
  std::vector<Command> rows = {{"FLUSHALL"}, {"SELECT", "6"}};
  for (int k = 1; k <= 4; ++k)
    rows.push_back(
        {"HSET", "INTERFACE|Vlan" + std::to_string(k), "device", "vlan" + std::to_string(k)});
  rows.push_back({"HSET", "VRF|bench", "state", "active", "namespace", "ns-bench"});
  rows.push_back({"HSET", "VIRTUAL_ROUTER_MAC|GLOBAL", "lumo", "02:1c:73:00:00:99"});
  rows.push_back({"HSET", "ACL_AGENT_INPUT|READY", "NULL", "NULL"});
  return rows;
}

Command vipRow(const std::string& address, const std::string& intf) {
  return {"HSET", "VIRTUAL_IP|bench|" + address + "|" + intf, "NULL", "NULL"};
}

// Sends the commands in one pipeline and reads every reply.
void pipeline(redisContext* c, const std::vector<Command>& commands) {
  for (const Command& cmd : commands) {
    std::vector<const char*> argv;
    std::vector<std::size_t> lens;
    for (const std::string& a : cmd) argv.push_back(a.data()), lens.push_back(a.size());
    redisAppendCommandArgv(c, int(argv.size()), argv.data(), lens.data());
  }
  for (std::size_t i = 0; i < commands.size(); ++i) {
    void* reply = nullptr;
    if (redisGetReply(c, &reply) != REDIS_OK) std::abort();
    freeReplyObject(reply);
  }
}

redisContext* writer() {
  redisContext* c = redisConnectUnix(kSocket);
  if (!c || c->err) std::abort();
  pipeline(c, {{"SELECT", "6"}});
  return c;
}

// Notes when each line has run.
class TimingApplier : public Acl::CommandApplier {
 public:
  explicit TimingApplier(Kiv::Ptr<Acl::CommandApplier> inner) : inner_(std::move(inner)) {}
  int lineIs(const std::string& line, FailureReport report) override {
    const int status = inner_->lineIs(line, std::move(report));
    if (!watched.empty() && line.find(watched) != std::string::npos && line.ends_with("-j DROP"))
      seen = Clock::now();
    return status;
  }
  void doApplyPending() override { inner_->doApplyPending(); }
  std::string watched;
  Clock::time_point seen;

 private:
  Kiv::Ptr<Acl::CommandApplier> inner_;
};

// The agent's wiring, per-line apply, without files, signals and control.
struct Harness {
  Harness()
      : loop(new Kiv::ActivityManager(new Kiv::MonotonicClock())),
        em(new Mirel::EntityManager()),
        publisher(em),
        phased(publisher, nullptr),
        runner(stats),
        applier(new TimingApplier(new Agent::PerLineApplier(runner, absent))) {
    Kiv::activityManagerIs(loop);
    loop->afterCallbackIs([this] { applier->doApplyPending(); });
  }
  void init() { Acl::DefaultPluginLoader().doInit(new Acl::PluginContext(em, applier)); }
  // Runs the loop (as the agent does, phase 2 included) until done() holds
  // at a point where nothing is queued or due.
  void runUntil(const std::function<bool()>& done) {
    for (;;) {
      if (!loop->idle())
        loop->runOnce(0.05);
      else if (phased.waiting())
        phased.doPublishWaiting();
      else if (done())
        return;
      else
        loop->runOnce(0.005);
    }
  }

  Kiv::Ptr<Kiv::ActivityManager> loop;
  Kiv::Ptr<Mirel::EntityManager> em;
  Agent::Publisher publisher;
  Agent::PhasedPublisher phased;
  Agent::ApplyStats stats;
  Agent::Runner runner;
  Agent::KnownAbsent absent;
  Kiv::Ptr<TimingApplier> applier;
};

std::uint64_t commandsRun(const Agent::ApplyStats& stats) {
  std::uint64_t n = 0;
  for (const auto& [tool, counts] : stats.perTool()) n += counts.run;
  return n;
}

// Runs `job` in a child; returns what it printed.
std::string inChild(const std::function<std::string()>& job) {
  int fds[2];
  if (::pipe(fds) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    const std::string out = job();
    [[maybe_unused]] ssize_t n = ::write(fds[1], out.data(), out.size());
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, n);
  ::close(fds[0]);
  ::waitpid(pid, nullptr, 0);
  return out;
}

std::string documentRun(int vips) {
  Harness h;
  h.init();
  h.runUntil([] { return true; });
  const std::uint64_t before = commandsRun(h.stats);
  const auto start = Clock::now();
  h.phased.targetIs(Agent::parseStateDocument(document(vips)), "bench", true);
  h.runUntil([] { return true; });
  return std::to_string(since(start)) + " " + std::to_string(commandsRun(h.stats) - before);
}

std::string redisRun(int vips, int singles) {
  redisContext* w = writer();
  pipeline(w, baseRows());
  Harness h;
  bool started = false;
  Agent::Redis::RedisSource source(
      *h.loop, h.phased, {Agent::Redis::parseAddress(std::string("unix:") + kSocket), 6},
      [&] {
        started = true;
        h.init();
      },
      nullptr);
  source.doStart();
  h.runUntil([&] { return started; });
  h.runUntil([] { return true; });
  std::vector<Command> rows;
  for (int i = 0; i < vips; ++i) rows.push_back(vipRow(vipAddress(i), vipIntf(i)));
  const std::uint64_t before = commandsRun(h.stats);
  const auto start = Clock::now();
  pipeline(w, rows);
  h.runUntil([&] { return h.publisher.current().virtualIps.size() == std::size_t(vips); });
  std::ostringstream out;
  out << since(start) << ' ' << commandsRun(h.stats) - before;
  for (int i = 0; i < singles; ++i) {
    const std::string address = "10.200.0." + std::to_string(i + 1);
    h.applier->watched = "-d " + address + " -i vlan1 ";  // of the ACCEPT, then the DROP
    h.applier->seen = {};
    const auto t0 = Clock::now();
    pipeline(w, {vipRow(address + "/32", "Vlan1")});
    h.runUntil([&] { return h.applier->seen != Clock::time_point{}; });
    out << ' ' << std::chrono::duration<double>(h.applier->seen - t0).count();
  }
  redisFree(w);
  return out.str();
}

}  // namespace

int main(int argc, char** argv) {
  int vips = 1000, singles = 20, rounds = 3;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--vips")) vips = std::atoi(argv[i + 1]);
    if (!std::strcmp(argv[i], "--singles")) singles = std::atoi(argv[i + 1]);
    if (!std::strcmp(argv[i], "--rounds")) rounds = std::max(1, std::atoi(argv[i + 1]));
  }
  const std::string why = enterSandbox(StandIns::off);
  if (!why.empty()) {
    std::fprintf(stderr, "redis_bench: no sandbox: %s\n", why.c_str());
    return 77;
  }
  if (!Agent::doChooseArptablesDialect(Agent::ArptablesDialect::stock, [] { return false; }))
    return 1;
  if (std::system("ip netns add ns-bench") != 0) return 1;
  const pid_t server = ::fork();
  if (server == 0) {
    std::freopen("/dev/null", "w", stdout);
    ::execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", kSocket, "--save", "",
             "--appendonly", "no", "--dir", "/run", "--loglevel", "warning", nullptr);
    ::_exit(127);
  }
  for (int i = 0; i < 100; ++i) {
    if (redisContext* c = redisConnectUnix(kSocket); c && !c->err) {
      redisFree(c);
      break;
    }
    ::usleep(50000);
  }
  // Rounds alternate the two, so that a busy machine weighs on both alike.
  std::printf(
      "| %d VIPs, per-line | document s | rows, one pipeline s | rows / document | commands |\n"
      "|---|---|---|---|---|\n",
      vips);
  std::vector<double> ratios, one;
  for (int round = 1; round <= rounds; ++round) {
    double doc = 0, rows = 0;
    std::uint64_t docCommands = 0, rowCommands = 0;
    std::istringstream(inChild([&] { return documentRun(vips); })) >> doc >> docCommands;
    std::istringstream r(inChild([&] { return redisRun(vips, round == 1 ? singles : 0); }));
    r >> rows >> rowCommands;
    for (double t; r >> t;) one.push_back(t);
    ratios.push_back(rows / doc);
    std::printf("| round %d | %.3f | %.3f | %.3fx | %llu / %llu |\n", round, doc, rows, rows / doc,
                static_cast<unsigned long long>(docCommands),
                static_cast<unsigned long long>(rowCommands));
    std::fflush(stdout);
  }
  std::sort(ratios.begin(), ratios.end());
  std::sort(one.begin(), one.end());
  std::printf("median rows / document: %.3fx\n", ratios[ratios.size() / 2]);
  if (!one.empty())
    std::printf(
        "one row to an agent holding %d VIPs, write to DROP rule in the kernel: median "
        "%.1f ms, worst %.1f ms (%zu rows)\n",
        vips, one[one.size() / 2] * 1e3, one.back() * 1e3, one.size());
  ::kill(server, SIGTERM);
  ::waitpid(server, nullptr, 0);
  return 0;
}
