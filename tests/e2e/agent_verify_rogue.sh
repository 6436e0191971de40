#!/usr/bin/env bash
# verify and verify --repair against rules that only look like the plug-in's,
# with the real iptables and arptables (stock, through the agent's adapter).
# One row per case: how the kernel is changed by hand, and the line verify
# must report. Then --repair puts every namespace back exactly (no command
# from a listing ever reaches a shell: the file M never appears), logs no
# failure, and verify is in step; --verify-every 0.001 --repair does the same
# by itself.
set -uo pipefail
export FHRP_E2E_REAL_ARPTABLES=1
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-red
ip netns add ns-empty
mac=02:1c:73:00:00:99
cat >"$work/state.json" <<JSON
{
  "interfaces": { "Vlan21": { "device": "vlan21" }, "Vlan22": { "device": "vlan22" },
                  "Vlan23": { "device": "vlan23" }, "Vlan24": { "device": "vlan24" } },
  "vrfs": { "red": { "state": "active", "namespace": "ns-red" },
            "empty": { "state": "active", "namespace": "ns-empty" } },
  "virtualRouterMac": { "lumo": "$mac" },
  "virtualIps": [
    { "vrf": "red", "address": "10.0.21.1/24", "interfaces": ["Vlan21"] },
    { "vrf": "red", "address": "10.0.22.1/24", "interfaces": ["Vlan22"] },
    { "vrf": "red", "address": "10.0.23.1/24", "interfaces": ["Vlan23"] },
    { "vrf": "red", "address": "10.0.24.1/24", "interfaces": ["Vlan24"] }
  ]
}
JSON
tagged='-m comment --comment "KESTEL ADDED"'
ipt() { ip netns exec "$1" iptables -t mangle "${@:2}"; }
arp() { ip netns exec ns-red arptables "$@"; }
ours() { echo "-d 10.0.2$1.0/24 -o vlan2$1 -j mangle --mangle-mac-s $mac --mangle-ip-s 10.0.2$1.1"; }

# case | namespace | how the kernel is changed | the line verify reports (ERE)
cases=(
  "hostile interface|ns-red|ipt ns-red -A PREROUTING -d 10.0.21.1 -i '\$(id>M)' -p tcp -m comment --comment 'KESTEL ADDED' -j DROP|extra +iptables -d 10.0.21.1/32 -i \\\$\\(id>M\\) -p tcp $tagged -j DROP"
  "ACCEPT widened|ns-red|ipt ns-red -D PREROUTING -p icmp -d 10.0.21.1 -i vlan21 $tagged -j ACCEPT && ipt ns-red -I PREROUTING 1 -d 10.0.21.1 -i vlan21 $tagged -j ACCEPT|extra +iptables -d 10.0.21.1/32 -i vlan21 $tagged -j ACCEPT$"
  "DROP narrowed|ns-red|ipt ns-red -D PREROUTING -d 10.0.22.1 -i vlan22 $tagged -j DROP && ipt ns-red -A PREROUTING -p udp -d 10.0.22.1 -i vlan22 $tagged -j DROP|extra +iptables -d 10.0.22.1/32 -i vlan22 -p udp $tagged -j DROP"
  "ARP rule answers Reply|ns-red|arp -D OUTPUT --opcode Request \$(ours 2) && arp -A OUTPUT --opcode Reply \$(ours 2)|extra +arptables -d 10.0.22.0/24 -o vlan22 -a 6 --arpop Reply -j mangle"
  "stray rule, no rule expected|ns-empty|ipt ns-empty -A PREROUTING -d 10.9.9.9 -i vlan99 $tagged -j DROP|extra +iptables -d 10.9.9.9/32 -i vlan99 $tagged -j DROP"
  "foreign ACCEPT without -p|ns-red|ipt ns-red -A PREROUTING -d 10.9.9.8 -i vlan98 $tagged -j ACCEPT|extra +iptables -d 10.9.9.8/32 -i vlan98 $tagged -j ACCEPT"
  "ACCEPT twice|ns-red|ipt ns-red -A PREROUTING -p icmp -d 10.0.23.1 -i vlan23 $tagged -j ACCEPT|extra +iptables -d 10.0.23.1/32 -i vlan23 -p icmp $tagged -j ACCEPT"
  "DROP before ACCEPT|ns-red|ipt ns-red -D PREROUTING -p icmp -d 10.0.24.1 -i vlan24 $tagged -j ACCEPT && ipt ns-red -A PREROUTING -p icmp -d 10.0.24.1 -i vlan24 $tagged -j ACCEPT|misordered +DROP before ACCEPT on vlan24"
)

mkdir "$work/run"
cd "$work/run" || fail "no run folder"
start_agent "$work/err" --state "$work/state.json" --arptables stock
idle() { "$agent" status --json 2>/dev/null | grep '"size": 0' >/dev/null; }
wait_idle() { eventually idle || fail "the backlog never drained: $("$agent" status)"; }
wait_for "$work/err" "^acl-agent: published $work/state.json"
wait_idle
"$agent" verify >"$work/verify" 2>&1 || fail "not in step before the changes: $(cat "$work/verify")"

for c in "${cases[@]}"; do
  IFS='|' read -r name ns change expect <<<"$c"
  eval "$change" || fail "$name: cannot change the kernel: $change"
  "$agent" verify >"$work/verify" 2>&1
  grep -Eq -- "$expect" "$work/verify" || fail "$name: verify does not say: $expect
$(cat "$work/verify")"
  grep -q "^$ns: drift$" "$work/verify" || fail "$name: $ns not in drift"
done
cat "$work/verify"

"$agent" verify --repair >"$work/repair" 2>&1
cat "$work/repair"
grep -Eq "^repair: [0-9]+ pairs queued, 1 arptables rules re-added, 7 extra rules removed, 0 failed$" \
  "$work/repair" || fail "unexpected repair summary"
wait_idle
"$agent" verify >"$work/verify" 2>&1 || fail "verify after the repair: $(cat "$work/verify")"
[ "$(rules ns-red | grep -c -- '-d 10.0.23.1/32 .*-j ACCEPT')" -eq 1 ] || fail "two ACCEPT rules left"
rules ns-red | grep -- '-d 10.0.23.1/32' | head -n 1 | grep -q -- '-j ACCEPT$' ||
  fail "DROP before ACCEPT after the repair: $(rules ns-red)"
[ -e M ] && fail "a listed interface name ran as a command"
grep -E "ERROR|left alone" "$work/err" && fail "the repair logged a failure"

# By itself, as often as the loop turns.
stop_agent
start_agent "$work/err2" --state "$work/state.json" --arptables stock --verify-every 0.001 --repair
wait_for "$work/err2" "^acl-agent: published $work/state.json"
wait_idle
ipt ns-red -A PREROUTING -d 10.0.21.1 -i '$(id>M)' -p tcp -m comment --comment 'KESTEL ADDED' -j DROP
eventually sh -c "! ip netns exec ns-red iptables -t mangle -S PREROUTING | grep -q 'id>M'" ||
  fail "the hostile rule was not removed by --verify-every"
wait_idle
"$agent" verify >"$work/verify" 2>&1 || fail "verify after --verify-every: $(cat "$work/verify")"
[ -e M ] && fail "a listed interface name ran as a command"
grep -E "ERROR|left alone" "$work/err2" && fail "the repair logged a failure"
stop_agent
echo PASS
