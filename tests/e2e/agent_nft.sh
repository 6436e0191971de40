#!/usr/bin/env bash
# --apply nft and --apply batch log what --apply per-line logs, and verify
# tells the same story of all: the agent runs once in each mode on the same documents (a
# start, and a reload that adds, removes, re-masks and changes the MAC),
# with one rule that the reload removes deleted by hand before it (its
# removal fails: logged once) and a VRF whose namespace vanishes (its lines
# fail silently). nft mode leaves everyone else's tables alone, at start-up
# too, and runs no arptables at all.
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

run_mode() {
  local mode=$1 err="$work/err.$1"
  ip netns add ns-gone
  cp "$work/start.json" "$work/state.json"
  start_agent "$err" --state "$work/state.json" --apply "$mode" --trace VirtualIpArpMangleSm/0,6
  wait_for "$err" "^acl-agent: published"
  wait_quiet "$err"
  if [ "$mode" = nft ]; then
    nft delete element ip acl-agent drop_all '{ 10.0.10.2 . "vlan10" }' ||
      fail "nft: 10.0.10.2 was not installed: $(nft list ruleset)"
  else
    iptables -t mangle -D PREROUTING -d 10.0.10.2/32 -i vlan10 -m comment \
      --comment "KESTEL ADDED" -j DROP || fail "$mode: 10.0.10.2 was not installed"
  fi
  ip netns del ns-gone
  cp "$work/reload.json" "$work/state.json"
  wait_for "$err" "changes)$"
  wait_quiet "$err"
  "$agent" verify >"$work/verify.$mode" 2>&1
  echo "exit $?" >>"$work/verify.$mode"
  stop_agent
  grep '^%' "$err" >"$work/logs.$mode"
}

run_mode per-line
run_mode batch
# Someone else's tables and rules, there before the nft run starts.
nft add table inet keep && nft add chain inet keep input '{ type filter hook input priority 0; }' &&
  nft add rule inet keep input counter && nft add table arp keep &&
  iptables -t mangle -A PREROUTING -p tcp --dport 9 -j ACCEPT || fail "cannot make other tables"
before="$(nft list table inet keep; nft list table arp keep; iptables -t mangle -S PREROUTING)"
arptables_lines=$(wc -l <"$FHRP_ARPTABLES_LOG")
run_mode nft

[ "$(grep -c . "$work/logs.per-line")" = 1 ] && grep -q "remove.*10.0.10.2.*vlan10" \
  "$work/logs.per-line" || fail "per-line did not log the one failed removal: $(cat "$work/logs.per-line")"
diff -u "$work/logs.per-line" "$work/logs.batch" || fail "batch logged otherwise than per-line"
diff -u "$work/verify.per-line" "$work/verify.batch" || fail "verify differs after batch"
diff -u "$work/logs.per-line" "$work/logs.nft" || fail "nft logged otherwise than per-line"
diff -u "$work/verify.per-line" "$work/verify.nft" || fail "verify differs between the modes"
# Listings are read whole first: grep -q would end them early (a failure under pipefail).
grep -q '10.0.10.3 . "vlan10"' <<<"$(nft list set ip acl-agent drop_all)" || fail "10.0.10.3 is missing: $(nft list ruleset; cat "$work/verify.nft"; grep -v "^%" "$work/err.nft" | tail -40)"
grep -q '10.0.30.1 . "vlan30"' <<<"$(ip netns exec ns-blue nft list set ip acl-agent drop_all)" ||
  fail "the re-masked virtual IP is missing in ns-blue: $(ip netns exec ns-blue nft list ruleset; cat "$work/verify.nft"; grep -v "^%" "$work/err.nft" | tail -30)"
grep -q "ether set 02:1c:73:00:00:98" <<<"$(nft list chain arp acl-agent output)" ||
  fail "the new MAC is missing: $(nft list table arp acl-agent; cat "$work/verify.nft")"
after="$(nft list table inet keep; nft list table arp keep; iptables -t mangle -S PREROUTING)"
[ "$before" = "$after" ] || fail "other tables changed: $before // $after"
[ "$(wc -l <"$FHRP_ARPTABLES_LOG")" = "$arptables_lines" ] || fail "nft mode ran arptables"
echo PASS
