// What one status request costs, in process with every command stubbed: the
// plug-in's view read into the status reply, parsed and rendered as the
// operator's table (as the client does), and the reply as the agent's loop
// sends it, at 1,000 / 5,000 / 20,000 virtual
// IPs (each on one interface, in one VRF, 64 to a /24 subnet). Also verify's
// side of the view (expected rules with their keys), which it reads once per
// run. The plug-in initialises once per process: the sizes are published in
// turn into one agent.
#include <benchmark/benchmark.h>

#include <sstream>

#include "agent/apply/ApplyStats.h"
#include "agent/control/Render.h"
#include "agent/control/Status.h"
#include "agent/source/Publisher.h"
#include "platform/acl/PluginLoader.h"
#include "platform/kiv/ActivityManager.h"

namespace {

std::string document(int vips) {
  std::ostringstream d;
  d << R"({"interfaces": {"Vlan1": {"device": "vlan1"}, "Vlan2": {"device": "vlan2"}},)"
    << R"( "vrfs": {"bench": {"state": "active", "namespace": "ns-bench"}},)"
    << R"( "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"}, "virtualIps": [)";
  for (int i = 0; i < vips; ++i) {
    const int subnet = i / 64;
    d << (i ? "," : "") << R"({"vrf": "bench", "address": "10.)" << 1 + subnet / 250 << '.'
      << subnet % 250 << '.' << i % 64 + 1 << R"(/24", "interfaces": ["Vlan)" << subnet % 2 + 1
      << R"("]})";
  }
  d << "]}";
  return d.str();
}

class StubApplier : public Acl::CommandApplier {
 public:
  int lineIs(const std::string&, FailureReport) override { return 0; }
};

// The agent's wiring on a manual clock: due wheel ticks are run by hand.
struct Agent {
  Agent()
      : clock(new Kiv::ManualClock()),
        loop(new Kiv::ActivityManager(clock)),
        em(new Mirel::EntityManager()),
        publisher(em),
        context(new Acl::PluginContext(em, new StubApplier())) {
    Kiv::activityManagerIs(loop);
    publisher.publish(Agent::parse(document(0)));
    Acl::DefaultPluginLoader().doInit(context.ptr());
    converge();
  }
  static ::Agent::StateDocument parse(const std::string& text) {
    return ::Agent::parseStateDocument(text);
  }
  void converge() {
    for (int i = 0; i < 100000 && !loop->idle(); ++i) {
      loop->runUntilIdle();
      clock->advance(0.01);
    }
  }
  void sizeIs(int vips) {
    if (vips == size) return;
    publisher.publish(parse(document(vips)));
    converge();
    size = vips;
  }
  Kiv::Ptr<Kiv::ManualClock> clock;
  Kiv::Ptr<Kiv::ActivityManager> loop;
  Kiv::Ptr<Mirel::EntityManager> em;
  ::Agent::Publisher publisher;
  Kiv::Ptr<Acl::PluginContext> context;
  ::Agent::ApplyStats stats;
  int size = 0;
};

Agent& agent() {
  static Agent* a = new Agent();
  return *a;
}

void BM_StatusAndRender(benchmark::State& state) {
  Agent& a = agent();
  a.sizeIs(int(state.range(0)));
  const Acl::PluginView* view = a.context->pluginView().ptr();
  if (!view || view->backlog().size != 0) state.SkipWithError("the plug-in did not converge");
  for (auto _ : state) {
    const std::string reply = ::Agent::Control::statusReply(view, a.stats, {});
    benchmark::DoNotOptimize(::Agent::Control::statusText(nlohmann::json::parse(reply)));
  }
}
BENCHMARK(BM_StatusAndRender)->Arg(1000)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);

// What the agent's loop spends on one status request: the reply as sent.
void BM_StatusReply(benchmark::State& state) {
  Agent& a = agent();
  a.sizeIs(int(state.range(0)));
  const Acl::PluginView* view = a.context->pluginView().ptr();
  for (auto _ : state) benchmark::DoNotOptimize(::Agent::Control::statusReply(view, a.stats, {}));
}
BENCHMARK(BM_StatusReply)->Arg(1000)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);

// The plug-in's share of it: its view read.
void BM_StatusView(benchmark::State& state) {
  Agent& a = agent();
  a.sizeIs(int(state.range(0)));
  const Acl::PluginView* view = a.context->pluginView().ptr();
  for (auto _ : state) {
    benchmark::DoNotOptimize(view->virtualIps());
    benchmark::DoNotOptimize(view->subnets());
  }
}
BENCHMARK(BM_StatusView)->Arg(1000)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);

void BM_VerifyExpected(benchmark::State& state) {
  Agent& a = agent();
  a.sizeIs(int(state.range(0)));
  const Acl::PluginView* view = a.context->pluginView().ptr();
  for (auto _ : state) benchmark::DoNotOptimize(view->expected());
}
BENCHMARK(BM_VerifyExpected)->Arg(1000)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);

}  // namespace
