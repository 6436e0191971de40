#!/usr/bin/env bash
# --apply=batch makes exactly the rules and log lines --apply=per-line makes:
# the agent runs once in each mode on the same documents, a start and a
# reload that adds, removes, changes a mask and the virtual-router MAC.
# Before the reload one rule that it removes is deleted by hand (its removal
# fails: logged once, the rest of its group still goes), and a VRF's
# namespace vanishes (its lines fail silently).
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-red
ip netns add ns-blue
green='"green": { "state": "active", "namespace": "ns-gone" },'
sed -e "s/\"vrfs\": {/\"vrfs\": { $green/" "$root/examples/state.json" >"$work/start.json"
sed -e '/10.0.10.2\/24/d; /192.0.2.7/d; s#10.0.30.1/25#10.0.30.1/26#; s/00:00:99/00:00:98/' \
  -e 's#"virtualIps": \[#&\n { "vrf": "default", "address": "10.0.10.3/24", "interfaces": ["Vlan10"] },\n { "vrf": "green", "address": "10.0.40.1/24", "interfaces": ["Vlan10"] },#' \
  "$work/start.json" >"$work/reload.json"

# Waits until the agent has written nothing for a second (level 6 traces
# every command line, so a busy agent keeps writing).
wait_quiet() {
  local before=-1 now
  for _ in $(seq 40); do
    now=$(wc -c <"$1")
    [ "$now" = "$before" ] && return 0
    before=$now
    sleep 1
  done
  fail "the agent never went quiet: $(tail -5 "$1")"
}

snapshot() {
  for ns in default ns-red ns-blue; do
    echo "== $ns"
    rules "$ns"
    rules "$ns" ip6tables
    cat "$FHRP_ARPTABLES_LOG.rules.$ns" 2>/dev/null
  done
}

run_mode() {
  local mode=$1 err="$work/err.$1"
  ip netns add ns-gone
  cp "$work/start.json" "$work/state.json"
  start_agent "$err" --state "$work/state.json" --apply "$mode" --trace VirtualIpArpMangleSm/0,5,6 --trace AclAgent/5
  wait_for "$err" "^acl-agent: published"
  wait_quiet "$err"
  iptables -t mangle -D PREROUTING -d 10.0.10.2/32 -i vlan10 -m comment \
    --comment "KESTEL ADDED" -j DROP || fail "$mode: 10.0.10.2 was not installed"
  ip netns del ns-gone
  cp "$work/reload.json" "$work/state.json"
  wait_for "$err" "changes)$"
  wait_quiet "$err"
  snapshot >"$work/rules.$mode"
  stop_agent
  grep '^%' "$err" >"$work/logs.$mode"
}

run_mode per-line
run_mode batch
grep -q "10.0.10.3.*DROP" "$work/rules.per-line" || fail "the added virtual IP is missing"
grep -q "10.0.30.1/32.*DROP" "$work/rules.per-line" || fail "the re-masked virtual IP is missing"
grep -q "00:00:98" "$work/rules.per-line" || fail "the new MAC is missing"
diff -u "$work/rules.per-line" "$work/rules.batch" || fail "batch made other rules than per-line"
[ "$(grep -c . "$work/logs.per-line")" = 1 ] && grep -q "remove.*10.0.10.2.*vlan10" \
  "$work/logs.per-line" || fail "per-line did not log the one failed removal: $(cat "$work/logs.per-line")"
diff -u "$work/logs.per-line" "$work/logs.batch" || fail "batch logged otherwise than per-line"
grep -q "lines with one restore on namespace ns-red" "$work/err.batch" || fail "batch ran no restore"
grep -q "lines failed on namespace default" "$work/err.batch" || fail "no group fell back"
echo PASS
