// What a trace statement costs: off (two flag tests, no text), and on with a
// sink that drops the line, for contrast.
#include <benchmark/benchmark.h>

#include "AclPlugin/diagnostics/Trace.h"
#include "platform/dravo/IpGenAddr.h"

namespace {

const Dravo::IpGenAddr kVip("10.0.0.1");

void traceOneLine(int i) {
  FHRP_TRACE(5, "Adding iptables rules for " << kVip << " on interface "
                                             << "vlan" << i << " on namespace "
                                             << "ns-red");
}

void BM_TraceOff(benchmark::State& state) {
  Kiv::traceConfigIs("VirtualIpArpMangleSm/none");
  int i = 0;
  for (auto _ : state) {
    traceOneLine(i++);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TraceOff);

void BM_TraceOnNullSink(benchmark::State& state) {
  Kiv::traceConfigIs("VirtualIpArpMangleSm/5");
  Kiv::traceSinkIs([](const Kiv::TraceRecord& r) { benchmark::DoNotOptimize(r.text.size()); });
  int i = 0;
  for (auto _ : state) traceOneLine(i++);
  Kiv::traceSinkIs(nullptr);
  Kiv::traceConfigIs("VirtualIpArpMangleSm/none");
}
BENCHMARK(BM_TraceOnNullSink);

}  // namespace
