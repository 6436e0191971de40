#!/usr/bin/env bash
# acl-agent verify and verify --repair against the kernel: a rule deleted by
# hand is missing, a tagged rule added by hand is extra, a pair whose ACCEPT
# add failed is half installed, and the pair of a VRF whose namespace came
# after it was dropped is missing. verify exits 1 and names each; --repair
# queues the pairs through the plug-in's backlog and removes the extra rule,
# after which verify exits 0. status shows the failed add; --verify-every
# logs the drift by itself.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-red
ip netns add ns-blue

# An iptables in front of the real one that fails the first ACCEPT add of
# 10.0.10.2, once.
mkdir "$work/bin"
cat >"$work/bin/iptables" <<EOF
#!/bin/sh
case "\$*" in *'-A PREROUTING -p icmp -d 10.0.10.2 '*) [ -e '$work/once' ] || { : >'$work/once'; exit 1; } ;; esac
exec '$(command -v iptables)' "\$@"
EOF
chmod +x "$work/bin/iptables"

# The green VRF is being deleted: its virtual IP's pair is dropped.
sed -e 's|"blue": {|"green": { "state": "deleting", "namespace": "ns-green" }, "blue": {|' \
  -e 's|"virtualIps": \[|"virtualIps": [ { "vrf": "green", "address": "10.0.40.1/32", "interfaces": ["Vlan30"] },|' \
  "$root/examples/state.json" >"$work/state.json"
PATH="$work/bin:$PATH" start_agent "$work/err" --state "$work/state.json" --verify-every 2
idle() { "$agent" status --json 2>/dev/null | grep '"size": 0' >/dev/null; }
wait_idle() { eventually idle || fail "the backlog never drained: $("$agent" status)"; }
wait_for "$work/err" "^acl-agent: published $work/state.json: 4 interfaces, 3 VRFs"
wait_idle

# The green namespace appears after its pair was dropped.
ip netns add ns-green
sed -i 's|"state": "deleting"|"state": "active"|' "$work/state.json"
kill -HUP "$pid"
wait_for "$work/err" "(1 changes)$"
wait_idle
has ns-green 10.0.40.1 && fail "the late namespace got its rules without a repair"

tag='KESTEL ADDED'
ip netns exec ns-red iptables -t mangle -D PREROUTING -p icmp -d 10.0.20.1 -i vlan20 \
  -m comment --comment "$tag" -j ACCEPT || fail "cannot delete the red ACCEPT rule"
ip netns exec ns-blue iptables -t mangle -A PREROUTING -d 10.9.9.9 -i vlan30 \
  -m comment --comment "$tag" -j DROP || fail "cannot add a tagged rule"

wait_for "$work/err" "^acl-agent: verify: ns-blue: 0 missing, 0 misordered, 1 extra$"
"$agent" verify >"$work/verify" 2>&1
rc=$?
cat "$work/verify"
[ "$rc" -eq 1 ] || fail "verify exited $rc on drift"
expect() { grep -Eq -- "$1" "$work/verify" || fail "verify does not say: $1"; }
expect "^ns-red: drift$"
tagged='-m comment --comment "KESTEL ADDED"'
expect "missing +iptables -d 10.0.20.1/32 -i vlan20 -p icmp $tagged -j ACCEPT +\(vrf red, 10.0.20.1/24 on Vlan20\)"
expect "^ns-blue: drift$"
expect "extra +iptables -d 10.9.9.9/32 -i vlan30 $tagged -j DROP"
expect "^default: drift$"
expect "missing +iptables -d 10.0.10.2/32 -i vlan10 -p icmp $tagged -j ACCEPT +\(vrf default, 10.0.10.2/24 on Vlan10\)"
expect "^ns-green: drift$"
expect "missing +iptables -d 10.0.40.1/32 -i vlan30 $tagged -j DROP +\(vrf green, 10.0.40.1/32 on Vlan30\)"
[ "$(grep -c 'missing' "$work/verify")" -eq 4 ] || fail "not exactly 4 missing rules"

"$agent" status >"$work/status" || fail "status failed"
cat "$work/status"
grep -Eq "^FAILED AT +NAMESPACE +STATUS +LINE" "$work/status" || fail "status shows no failures"
grep -q -- "-A PREROUTING -p icmp -d 10.0.10.2 -i vlan10" "$work/status" ||
  fail "status does not show the failed add"
grep -Eq "^10.0.10.2/24 +default +default +Vlan10 +vlan10 +installed$" "$work/status" ||
  fail "status does not show the half-installed pair as installed"

"$agent" verify --repair >"$work/repair" 2>&1
rc=$?
cat "$work/repair"
[ "$rc" -eq 1 ] || fail "verify --repair exited $rc on drift"
grep -q "^repair: 3 pairs queued, 0 arptables rules re-added, 1 extra rules removed, 0 failed$" \
  "$work/repair" || fail "unexpected repair summary"

# The repair queued pairs: verify reads a queued pair as on its way, so only
# an empty backlog means the rules are back.
wait_idle
"$agent" verify >"$work/verify" 2>&1 || fail "verify after the repair: $(cat "$work/verify")"
has ns-green "-d 10.0.40.1/32 -i vlan30" || fail "the late namespace's rules were not installed"
stop_agent
[ -e "$control" ] && fail "the control socket outlived the agent"
echo PASS
