#!/usr/bin/env bash
# A VRRP daemon drives the agent: two routers (r1, r2) on one
# link (a bridge in the namespace br); each router runs its own redis-server,
# acl-agent and keepalived with the example configuration and notify hook
# (priorities 150 and 100). The master's agent holds the virtual IP's rules
# (what they do to packets is TrafficTest's) while the backup holds none;
# when keepalived stops on the master, the other router takes them.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
# shellcheck source=tests/e2e/redis_common.sh
source "$(dirname "$0")/redis_common.sh"
need_plugin
command -v keepalived >/dev/null || { echo "SKIP: no keepalived"; exit 77; }

vip=10.0.10.1
ip netns add br
ip -n br link add br0 type bridge
ip -n br link set br0 up
for n in r1:10.0.10.2:vlan10 r2:10.0.10.3:vlan10; do
  IFS=: read -r ns addr dev <<<"$n"
  [ -e "/run/netns/$ns" ] || ip netns add "$ns"
  ip -n br link add "p-$ns" type veth peer name "$dev" netns "$ns"
  ip -n br link set "p-$ns" master br0 up
  ip -n "$ns" addr add "$addr/24" dev "$dev"
  ip -n "$ns" link set "$dev" up
  ip -n "$ns" link set lo up
done

# rules_in NS: the tagged mangle rules for the virtual IP in router NS.
rules_in() { ip netns exec "$1" iptables -t mangle -S PREROUTING | grep -c "$vip/32.*KESTEL"; }
holds() { [ "$(rules_in "$1")" = 2 ]; }
holds_none() { [ "$(rules_in "$1")" = 0 ]; }

declare -A keepalived_pid
for r in r1:150 r2:100; do
  IFS=: read -r name priority <<<"$r"
  mkdir -m 700 "$work/$name"
  start_redis "$name"
  rcli "$name" HSET 'INTERFACE|Vlan10' device vlan10 >/dev/null
  rcli "$name" HSET 'ACL_AGENT_INPUT|READY' NULL NULL >/dev/null
  sed "s#-s /run/redis/redis-server.sock#-s $work/$name.sock#" \
    "$root/examples/keepalived/acl-agent-notify.sh" >"$work/$name/notify.sh"
  chmod 755 "$work/$name/notify.sh"
  sed -e "s#priority 150#priority $priority#" -e "s#/etc/keepalived/acl-agent-notify.sh#$work/$name/notify.sh#" \
    "$root/examples/keepalived/keepalived.conf" >"$work/$name/keepalived.conf"
  # The agent runs in the router's namespace: its default namespace is the router's.
  timeout --foreground -s KILL 100 ip netns exec "$name" "$agent" --redis "unix:$work/$name.sock" \
    --control "$work/$name.ctl" --lock "$work/$name.lock" >"$work/$name.err" 2>&1 &
  started=("$!" "${started[@]}")
  wait_for "$work/$name.err" "published redis"
  ip netns exec "$name" keepalived --vrrp --dont-fork --log-console -f "$work/$name/keepalived.conf" \
    -p "$work/$name/keepalived.pid" -r "$work/$name/vrrp.pid" >"$work/$name/keepalived.log" 2>&1 &
  keepalived_pid[$name]=$!
  started=("$!" "${started[@]}")
done

eventually holds r1 || fail "the master's agent never installed the rules: $(cat "$work/r1/keepalived.log")"
holds_none r2 || fail "the backup holds rules"

kill -TERM "${keepalived_pid[r1]}"
eventually holds r2 || fail "the backup never took over: $(cat "$work/r2/keepalived.log")"
eventually holds_none r1 || fail "the old master kept its rules"
echo PASS
