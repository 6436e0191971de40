#!/usr/bin/env bash
# acl-agent following a real redis-server: nothing (no start-up flush) before
# the ready row, then rows in -> rules in, a row deleted -> rules out, bad
# rows refused one by one while the others apply; its own state rows.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
# shellcheck source=tests/e2e/redis_common.sh
source "$(dirname "$0")/redis_common.sh"
vrf_namespaces
start_redis db
# An earlier run's rule, and every table but the ready row.
iptables -t mangle -A PREROUTING -d 10.9.9.9/32 -m comment --comment "KESTEL ADDED" -j DROP
grep -v READY "$root/examples/redis-state.txt" | redis-cli -s "$work/db.sock" >/dev/null
follow "$work/err" --redis "unix:$work/db.sock"
wait_for "$work/err" "no ACL_AGENT_INPUT|READY row: changes held"
status_has '"pluginReady":false' || fail "the plug-in started before the ready row"
has default 10.9.9.9 || fail "a flush ran before the ready row"
has default 10.0.10.1 && fail "rules before the ready row"

rcli db HSET 'ACL_AGENT_INPUT|READY' NULL NULL >/dev/null
wait_for "$work/err" "published redis unix:$work/db.sock db 6: 4 interfaces, 2 VRFs, 5 IPv4 VIPs, 2 IPv6 VIPs$"
eventually has ns-red 10.0.20.1 || fail "the red VIP was never installed"
eventually has ns-red 2001:db8:20::1 ip6tables || fail "the red IPv6 VIP is missing"
has default 10.9.9.9 && fail "the earlier run's rule outlived the start-up flush"
eventually eval 'test "$(rcli db HGET "ACL_AGENT_VIP_STATE|red|10.0.20.1/24|Vlan20" state)" = installed' ||
  fail "no installed state row for the red VIP"

# A row deleted: its rules and its state row go.
rcli db DEL 'VIRTUAL_IP|default|10.0.10.2/24|Vlan10' >/dev/null
eventually eval '! has default 10.0.10.2' || fail "a deleted row's rules stayed"
eventually eval 'test "$(rcli db EXISTS "ACL_AGENT_VIP_STATE|default|10.0.10.2/24|Vlan10")" = 0' ||
  fail "a deleted row's state row stayed"

# Bad rows beside a good one: 64 KiB of junk (shown cut short), a shell word.
junk="$(head -c 65536 /dev/zero | tr '\0' x)"
rcli db HSET "VIRTUAL_IP|red|$junk|Vlan20" NULL NULL >/dev/null
rcli db HSET 'INTERFACE|Vlan40' device 'v40;reboot' >/dev/null
rcli db HSET 'VIRTUAL_IP|red|10.0.20.9/24|Vlan20' NULL NULL >/dev/null
eventually has ns-red 10.0.20.9 || fail "a good row beside bad ones was not applied"
wait_for "$work/err" 'refused VIRTUAL_IP|red|xxxxxxxx.*\.\.\.: "xxxx.*"\.\.\. is too long for an address$'
wait_for "$work/err" 'refused INTERFACE|Vlan40: field device: device name "v40;reboot" may hold only'
rcli db HSET 'VIRTUAL_IP|default|10.0.10.2/24|Vlan10' NULL NULL >/dev/null
eventually has default 10.0.10.2 || fail "a row written after bad ones was not applied"
[ "$(grep -c 'refused INTERFACE|Vlan40' "$work/err")" = 1 ] || fail "a refusal was logged twice"
status_has '"ready":true' || fail "status does not show the source ready"
"$agent" metrics | grep -x 'acl_agent_redis_ready 1' >/dev/null || fail "metrics do not show the source ready"
"$agent" status | grep -q "refused INTERFACE|Vlan40: field device" || fail "status lacks the refusal"
kill -0 "$pid" 2>/dev/null || fail "acl-agent died on bad rows: $(cat "$work/err")"
stop_agent
echo PASS
