#!/usr/bin/env bash
# acl-agent following a real redis-server ends where a fresh run on the same
# rows ends: after a mask change and a VRF move written row by row, and after
# the server restarts with other content. A server back empty and without the
# ready row changes nothing.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
# shellcheck source=tests/e2e/redis_common.sh
source "$(dirname "$0")/redis_common.sh"
vrf_namespaces
example="$root/examples/redis-state.txt"
# The same rows after the mask change and the VRF move; then other content.
sed 's#VIRTUAL_IP|red|10.0.20.1/24#VIRTUAL_IP|red|10.0.20.1/25#; s#VIRTUAL_IP|blue|#VIRTUAL_IP|red|#' \
  "$example" >"$work/moved.txt"
grep -v -e 'VIRTUAL_IP|default|10.0.10' -e 'VIRTUAL_IP6|red' "$example" >"$work/other.txt"
echo 'HSET VIRTUAL_IP|default|10.0.10.3/24|Vlan10 NULL NULL' >>"$work/other.txt"

# What fresh runs make of each.
start_redis fresh
for content in moved other; do
  load fresh "$work/$content.txt"
  "$agent" --redis "unix:$work/fresh.sock" --until-idle >"$work/fresh.log" 2>&1 ||
    fail "a fresh run failed: $(cat "$work/fresh.log")"
  dump >"$work/$content.rules"
done
grep -A6 "== ns-red iptables" "$work/moved.rules" | grep -q 10.0.30.1 || fail "the fresh run did not move the blue VIP"

start_redis db
load db "$example"
follow "$work/err" --redis "unix:$work/db.sock"
eventually has ns-blue 10.0.30.1 || fail "the blue VIP was never installed"
eventually has ns-red 10.0.20.1 || fail "the red VIP was never installed"

# As a writer does it: the new row, then the old one goes.
rcli db HSET 'VIRTUAL_IP|red|10.0.20.1/25|Vlan20' NULL NULL >/dev/null
rcli db DEL 'VIRTUAL_IP|red|10.0.20.1/24|Vlan20' >/dev/null
rcli db DEL 'VIRTUAL_IP|blue|10.0.30.1/25|Vlan30' >/dev/null
rcli db HSET 'VIRTUAL_IP|red|10.0.30.1/25|Vlan30' NULL NULL >/dev/null
eventually eval 'dump | cmp -s - "$work/moved.rules"' ||
  fail "not as a fresh run: $(dump | diff "$work/moved.rules" -)"

# The server goes and comes back empty: nothing changes.
kill -TERM "$redis_pid"
wait_for "$work/err" "connection lost"
start_redis db
eventually eval '[ "$(grep -c "changes held" "$work/err")" = 1 ]' || fail "no hold after the restart"
dump | cmp -s - "$work/moved.rules" || fail "an empty server changed the rules"

# Then it gets other content, the ready row last.
grep -v READY "$work/other.txt" | redis-cli -s "$work/db.sock" >/dev/null
rcli db HSET 'ACL_AGENT_INPUT|READY' NULL NULL >/dev/null
eventually eval 'dump | cmp -s - "$work/other.rules"' ||
  fail "not as a fresh run: $(dump | diff "$work/other.rules" -)"
stop_agent
echo PASS
