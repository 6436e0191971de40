#!/usr/bin/env bash
# Builds the release preset (benchmarks on) and runs the convergence benchmark
# in a private network + mount namespace (converge_bench enters it itself),
# then the Redis source against the document (redis_bench, with a redis-server
# of its own there), then the Google Benchmark programs (status_bench: a status
# request's cost at 1,000 to 20,000 virtual IPs, commands stubbed). Needs root,
# like the real-kernel tests.
#
#   scripts/bench.sh [converge_bench options]   e.g. --per-line-up-to 5000
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target converge_bench acl-agent-arptables hashmap_bench trace_bench \
  status_bench redis_bench
echo "# $(nproc) cores, kernel $(uname -r), $(iptables --version), $(arptables --version 2>&1 | head -n 1)"
build/release/bin/converge_bench "$@"
build/release/bin/redis_bench
build/release/bin/hashmap_bench --benchmark_min_time=0.2 2>/dev/null | grep -E '^BM_' || true
build/release/bin/status_bench --benchmark_min_time=0.2 2>/dev/null | grep -E '^BM_' || true
