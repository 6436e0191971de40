#!/usr/bin/env bash
# The demo: installs what is missing, builds, and runs the agent on
# examples/state.json inside a private sandbox (scripts/sandbox.sh) with the
# host's real iptables, ip6tables and arptables, then shows the rules it
# made in each namespace and what they do to traffic from a neighbour
# namespace on the far end of a veth pair. The host's own packet filters and
# namespaces are never touched; no packet leaves the sandbox.
#
#   scripts/demo.sh [preset] [applier]   (debug by default; release works too;
#                                         applier per-line (default), batch or nft:
#                                         with nft it shows `nft list table ...`)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
inside=__fhrp_demo_inside__

if [ "${1:-}" != "$inside" ]; then
  preset="${1:-debug}"
  apply="${2:-per-line}"
  case "$apply" in per-line | batch | nft) ;; *) echo "demo: no applier \"$apply\"" >&2; exit 2 ;; esac
  scripts/setup.sh
  cmake --preset "$preset"
  cmake --build --preset "$preset"
  exec scripts/sandbox.sh --no-stand-ins scripts/demo.sh "$inside" "build/$preset/bin/acl-agent" "$apply"
fi
# The namespaces made below must stay in scripts/sandbox.sh's sandbox.
source "$(dirname "${BASH_SOURCE[0]}")/lib/require-sandbox.sh" demo
agent="$2"
apply="$3"
state=examples/state.json
vmac=02:1c:73:00:00:99 # the example's virtual router MAC

# The example's VRF namespaces and, for each namespace ("default": the
# sandbox's own), the kernel devices of the interfaces its virtual IPs use.
namespaces=(default ns-red ns-blue)
declare -A devices=([default]="vlan10 et4" [ns-red]="vlan20" [ns-blue]="vlan30")
# Devices with a neighbour: the switch's own address (added first, so it is
# the primary one), the neighbour's, and the example's virtual IPs on it.
declare -A own=([vlan10]=10.0.10.254/24 [vlan20]=10.0.20.254/24 [vlan30]=10.0.30.126/25)
declare -A nbr=([vlan10]=10.0.10.10 [vlan20]=10.0.20.10 [vlan30]=10.0.30.10)
declare -A vips=([vlan10]="10.0.10.1 10.0.10.2" [vlan20]=10.0.20.1 [vlan30]=10.0.30.1)
declare -A vip6=([vlan10]=2001:db8:10::1 [vlan20]=2001:db8:20::1)

in_ns() { if [ "$1" = default ]; then "${@:2}"; else ip netns exec "$@"; fi; }

for ns in "${namespaces[@]}"; do
  if [ "$ns" != default ]; then
    ip netns add "$ns"
    ip -n "$ns" link set lo up
  fi
  for dev in ${devices[$ns]}; do
    if [ -z "${own[$dev]:-}" ]; then
      # No traffic here: a dummy link where the kernel has the driver, else an empty bridge.
      in_ns "$ns" ip link add "$dev" type dummy 2>/dev/null ||
        in_ns "$ns" ip link add "$dev" type bridge
      in_ns "$ns" ip link set "$dev" up
      continue
    fi
    nb="nb-$dev"
    ip netns add "$nb"
    ip -n "$nb" link set lo up
    in_ns "$ns" ip link add "$dev" type veth peer name nb0 netns "$nb"
    plen="${own[$dev]#*/}"
    in_ns "$ns" ip addr add "${own[$dev]}" dev "$dev"
    for v in ${vips[$dev]}; do in_ns "$ns" ip addr add "$v/$plen" dev "$dev"; done
    ip -n "$nb" addr add "${nbr[$dev]}/$plen" dev nb0
    if [ -n "${vip6[$dev]:-}" ]; then
      in_ns "$ns" ip addr add "${vip6[$dev]}/64" dev "$dev" nodad
      ip -n "$nb" addr add "${vip6[$dev]%::*}::10/64" dev nb0 nodad
    fi
    in_ns "$ns" ip link set "$dev" up
    ip -n "$nb" link set nb0 up
  done
done

scratch="$(mktemp -d)"
# The control socket in the scratch folder, never under the host's /run.
echo "== acl-agent --state $state --apply $apply --until-idle --trace VirtualIpArpMangleSm/0,5"
if ! "$agent" --state "$state" --apply "$apply" --until-idle --trace VirtualIpArpMangleSm/0,5 \
  --control "$scratch/control.sock" 2>&1; then
  echo "demo: acl-agent failed" >&2
  exit 1
fi

# TCP port 7000 of ADDR from namespace NB: "answered" when the switch
# answers at all (with no listener it refuses), "dropped" when nothing comes
# back within 2 s.
tcp() {
  if ip netns exec "$1" timeout 2 bash -c "exec 3<>/dev/tcp/$2/7000" 2>/dev/null ||
    [ $? -ne 124 ]; then
    echo answered
  else
    echo dropped
  fi
}
# Two tries: the first may go while the neighbour entries are still being
# learnt (the switch's own requests carry the virtual router's sender).
pinged() { ip netns exec "$1" ping -c 2 -i 0.3 -W 2 -q "$2" >/dev/null 2>&1 && echo answered || echo lost; }

traffic() {
  local ns="$1" dev="$2" nb="nb-$2" vip="${vips[$2]%% *}" mac sender verdict
  mac="$(in_ns "$ns" ip -br link show dev "$dev" | awk '{ print $3 }')"
  echo "-- traffic between $dev (${own[$dev]%/*} at $mac) and a neighbour (${nbr[$dev]})"
  # ARP first, with empty caches: the switch resolves the neighbour, whose
  # cache then holds the sender of the request it saw.
  in_ns "$ns" ip neigh flush dev "$dev"
  in_ns "$ns" ping -c 1 -W 1 -q "${nbr[$dev]}" >/dev/null 2>&1 || true
  sender="$(ip -n "$nb" neigh show dev nb0 | awk '/lladdr/ { print $1 " at " $3; exit }')"
  verdict="not rewritten"
  [ "${sender#* at }" != "$vmac" ] || verdict="rewritten to the virtual router"
  echo "   ARP request for ${nbr[$dev]}: sender ${sender:-(none seen)} ($verdict)"
  # The switch's entry first: the neighbour's reply went to the virtual MAC,
  # so the switch is still probing, and each probe would teach the neighbour
  # that MAC again.
  in_ns "$ns" ip neigh flush dev "$dev"
  ip -n "$nb" neigh flush all
  echo "   ping $vip: $(pinged "$nb" "$vip")"
  [ -z "${vip6[$dev]:-}" ] || echo "   ping ${vip6[$dev]}: $(pinged "$nb" "${vip6[$dev]}")"
  local counted answer
  answer="$(tcp "$nb" "$vip")"
  if [ "$apply" = nft ]; then
    counted="$(in_ns "$ns" nft list chain ip acl-agent prerouting | awk '/@drop_all/ { print $(NF-3) }')"
    counted="the drop rule counted $counted packets"
  else
    counted="$(in_ns "$ns" iptables -t mangle -L PREROUTING -v -n -x |
      awk '/ DROP / && / '"$vip"' / { print $1 }')"
    counted="DROP rule counted $counted packets"
  fi
  echo "   TCP $vip:7000: $answer ($counted)"
  echo "   TCP ${own[$dev]%/*}:7000 (the switch's own address): $(tcp "$nb" "${own[$dev]%/*}")"
}

for ns in "${namespaces[@]}"; do
  echo
  echo "== namespace $ns (devices: ${devices[$ns]})"
  if [ "$apply" = nft ]; then
    for family in ip ip6 arp; do
      echo "-- nft list table $family acl-agent"
      in_ns "$ns" nft list table "$family" acl-agent
    done
  else
    for tool in iptables ip6tables; do
      echo "-- $tool -t mangle -S PREROUTING"
      in_ns "$ns" "$tool" -t mangle -S PREROUTING
    done
    echo "-- arptables -L"
    in_ns "$ns" arptables -L
  fi
  for dev in ${devices[$ns]}; do
    [ -z "${own[$dev]:-}" ] || traffic "$ns" "$dev"
  done
done
