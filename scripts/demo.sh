#!/usr/bin/env bash
# The demo: installs what is missing, builds, and runs the agent on
# examples/state.json inside a private sandbox (scripts/sandbox.sh), then
# shows the packet-filter rules it made in each namespace. The host's own
# packet filters and namespaces are never touched.
#
#   scripts/demo.sh [preset]      (debug by default; release works too)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
inside=__fhrp_demo_inside__

if [ "${1:-}" != "$inside" ]; then
  preset="${1:-debug}"
  scripts/setup.sh
  cmake --preset "$preset"
  cmake --build --preset "$preset"
  exec scripts/sandbox.sh scripts/demo.sh "$inside" "build/$preset/bin/acl-agent"
fi
# The namespaces made below must stay in scripts/sandbox.sh's sandbox.
source "$(dirname "${BASH_SOURCE[0]}")/lib/require-sandbox.sh" demo
agent="$2"
state=examples/state.json

# The example's VRF namespaces and, for each namespace ("default": the
# sandbox's own), the kernel devices of the interfaces its virtual IPs use.
namespaces=(default ns-red ns-blue)
declare -A devices=([default]="vlan10 et4" [ns-red]="vlan20" [ns-blue]="vlan30")

in_ns() { if [ "$1" = default ]; then "${@:2}"; else ip netns exec "$@"; fi; }

for ns in "${namespaces[@]}"; do
  if [ "$ns" != default ]; then
    ip netns add "$ns"
    ip -n "$ns" link set lo up
  fi
  for dev in ${devices[$ns]}; do
    # A dummy link where the kernel has the driver, else an empty bridge.
    in_ns "$ns" ip link add "$dev" type dummy 2>/dev/null ||
      in_ns "$ns" ip link add "$dev" type bridge
    in_ns "$ns" ip link set "$dev" up
  done
done

export FHRP_ARPTABLES_LOG
scratch="$(mktemp -d)"
FHRP_ARPTABLES_LOG="$scratch/arptables.log"
# The control socket in the scratch folder, never under the host's /run.
echo "== acl-agent --state $state --until-idle --trace VirtualIpArpMangleSm/0,5"
if ! "$agent" --state "$state" --until-idle --trace VirtualIpArpMangleSm/0,5 \
  --control "$scratch/control.sock" 2>&1; then
  echo "demo: acl-agent failed" >&2
  exit 1
fi

for ns in "${namespaces[@]}"; do
  echo
  echo "== namespace $ns (devices: ${devices[$ns]})"
  for tool in iptables ip6tables; do
    echo "-- $tool -t mangle -S PREROUTING"
    in_ns "$ns" "$tool" -t mangle -S PREROUTING
  done
done
echo
echo "== arptables commands, as the stand-in recorded them (in order, each line led by its [namespace])"
cat "$FHRP_ARPTABLES_LOG" 2>/dev/null || echo "(none)"
