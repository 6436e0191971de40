#!/usr/bin/env bash
# Reloads that give a virtual IP another prefix length or another namespace
# end with its rules where the new document puts them: acl-agent withdraws
# the virtual IP first and publishes the new document once the plug-in has
# decided every queued pair (its loop is idle).
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-a
ip netns add ns-b
# The arptables stand-in keeps a rule list per namespace, as the kernel does.
FHRP_ARPTABLES_LOG="$work/probe.log" arptables -A OUT probe
FHRP_ARPTABLES_LOG="$work/probe.log" ip netns exec ns-a arptables -D OUT probe &&
  fail "the arptables stand-in deleted a rule of another namespace"

# state PREFIX NAMESPACE [sentinel]: writes the state file (by rename): red's
# 10.0.20.1/PREFIX on Vlan20 in NAMESPACE, with "sentinel" also 192.0.2.1.
state() {
  local sentinel=""
  [ -n "${3:-}" ] && sentinel=', {"address": "192.0.2.1", "interfaces": ["Vlan20"]}'
  cat >"$work/next.json" <<JSON
{ "interfaces": {"Vlan20": {"device": "vlan20"}},
  "vrfs": {"red": {"namespace": "ns-a"}},
  "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"},
  "virtualIps": [{"vrf": "red", "address": "10.0.20.1/$1", "namespace": "$2",
                  "interfaces": ["Vlan20"]}$sentinel] }
JSON
  mv "$work/next.json" "$work/state.json"
}
# reload N ARGS...: writes state ARGS and waits for the agent's Nth reload.
# Each step reloads twice, the second time withdrawing the sentinel: its
# second phase waits until the plug-in has decided every pair queued before.
published() { [ "$(grep -c "^acl-agent: published $work/state.json: .* changes)$" "$work/err")" -ge "$1" ]; }
reload() {
  local n="$1"
  shift
  state "$@"
  eventually published "$n" || fail "reload $n ($*) not published: $(cat "$work/err")"
}
# count NS: how many of 10.0.20.1's iptables rules NS holds.
count() { rules "$1" | grep -c -- "-d 10.0.20.1/32 -i vlan20"; }
# arp NS VERB SUBNET: whether the stand-in recorded VERB of 10.0.20.1's subnet rule in NS.
arp() {
  grep -qxF -- "[$1] $2 OUT -d $3 -o vlan20 -a 6 --arpop Request -j mangle --mangle-hw-s \
02:1c:73:00:00:99 --mangle-ip-s 10.0.20.1" "$FHRP_ARPTABLES_LOG"
}

state 24 ns-a sentinel
start_agent "$work/err" --state "$work/state.json"
wait_for "$work/err" "^acl-agent: published $work/state.json: "
reload 1 24 ns-a
[ "$(count ns-a)" -eq 2 ] || fail "10.0.20.1/24 not installed in ns-a"
arp ns-a -A 10.0.20.0/24 || fail "no subnet rule for 10.0.20.0/24 in ns-a"

# Another prefix length: the plug-in keeps one record for 10.0.20.1 in red.
reload 2 25 ns-a sentinel
reload 3 25 ns-a
[ "$(count ns-a)" -eq 2 ] || fail "10.0.20.1 lost its rules with its new prefix length"
{ arp ns-a -D 10.0.20.0/24 && arp ns-a -A 10.0.20.0/25; } || fail "subnet rule not moved to /25"

# Another namespace: the rules leave ns-a and appear in ns-b.
reload 4 25 ns-b sentinel
reload 5 25 ns-b
[ "$(count ns-a)" -eq 0 ] || fail "10.0.20.1's rules stayed in ns-a"
[ "$(count ns-b)" -eq 2 ] || fail "10.0.20.1's rules are not in ns-b"
{ arp ns-a -D 10.0.20.0/25 && arp ns-b -A 10.0.20.0/25; } || fail "subnet rule not moved to ns-b"

grep -q "phase 1 of 2: 1 virtual IPs withdrawn$" "$work/err" || fail "no phase 1 line"
grep "%FHRP_" "$work/err" && fail "the plug-in logged failures"
stop_agent
echo PASS
