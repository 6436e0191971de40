#!/usr/bin/env bash
# acl-agent from start to stop on the example state. Bad usage (status 2) and
# a refused document (status 1, with file, place and reason) end it before
# any plug-in runs; a dry run writes each line and runs none. A real run
# flushes each VRF's chains once and installs the rules in their namespaces;
# it refuses a malformed reload (SIGHUP and the file's change) and keeps the
# state in force. A good reload removes a virtual IP, gives one another
# prefix length and moves one to another namespace: the agent withdraws those
# first and publishes the rest once the plug-in is idle, and every rule ends
# where the new document puts it. SIGTERM ends it with status 0.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

# expect STATUS MESSAGE ARGS...: acl-agent exits STATUS and prints MESSAGE.
expect() {
  local status="$1" message="$2"
  shift 2
  timeout 60 "$agent" "$@" 2>"$work/err"
  local rc=$?
  [ "$rc" -eq "$status" ] || fail "acl-agent $* exited $rc, not $status: $(cat "$work/err")"
  grep -qF -- "$message" "$work/err" || fail "acl-agent $*: no \"$message\" in: $(cat "$work/err")"
}

printf '{\n  "vrfs": {,}\n}\n' >"$work/syntax.json"
expect 1 "acl-agent: $work/syntax.json: line 2, column 12: syntax error" --state "$work/syntax.json"
expect 1 "acl-agent: $work/missing.json: cannot read: No such file or directory" \
  --state "$work/missing.json"
expect 2 "acl-agent: --trace VirtualIpArpMangleSm/9" --trace VirtualIpArpMangleSm/9
expect 2 "acl-agent: unknown argument \"--frobnicate\"" --frobnicate

ip netns add ns-red
ip netns add ns-blue
mkdir "$work/etc"
cp "$root/examples/state.json" "$work/etc/state.json"
expect 0 "acl-agent: published" --state "$work/etc/state.json" --until-idle --dry-run="$work/dry"
grep -qxF "ip netns exec ns-red iptables -t mangle -F PREROUTING" "$work/dry" &&
  grep -qF "iptables -t mangle -A PREROUTING -p all -d 10.0.10.1 -i vlan10" "$work/dry" ||
  fail "dry run lines: $(cat "$work/dry")"
[ ! -s "$FHRP_ARPTABLES_LOG" ] && ! has default 10.0.10.1 && ! grep -q "arptables: " "$work/err" ||
  fail "a refused start or the dry run ran commands"

start_agent "$work/err" --state "$work/etc/state.json"
wait_for "$work/err" "^acl-agent: published $work/etc/state.json: 4 interfaces, 2 VRFs, 5 IPv4 VIPs, 2 IPv6 VIPs$"
# The stand-in takes any line, so the start-up probe finds the native dialect.
wait_for "$work/err" "^acl-agent: arptables: native (the host's arptables lists chain OUT)$"
# The rules, each in its VIP's namespace.
eventually has ns-red "-d 10.0.20.1/32 -i vlan20" || fail "no rule for 10.0.20.1 in ns-red"
eventually has ns-blue "-d 10.0.30.1/32 -i vlan30" || fail "no rule for 10.0.30.1 in ns-blue"
eventually has default "-d 2001:db8:10::1/128 -i vlan10" ip6tables || fail "no 2001:db8:10::1"
has default 10.0.20.1 && fail "a red VIP's rule landed in the default namespace"
# Each VRF's chains flushed once, through the VRFs the agent gave the plug-in
# (the flush lines themselves are pinned in process).
for ns in ns-red ns-blue default; do
  [ "$(grep -cxF -- "[$ns] -F OUT" "$FHRP_ARPTABLES_LOG")" -eq 1 ] ||
    fail "arptables flushes in $ns: $(cat "$FHRP_ARPTABLES_LOG")"
done

# Malformed (a number no double holds, where nothing reads it): written over
# the file (the change is seen) and signalled.
printf '{"virtualIps": [],\n "x": 1e500}\n' >"$work/etc/state.json"
kill -HUP "$pid"
wait_for "$work/err" "^acl-agent: $work/etc/state.json: line 2, column 11: number overflow parsing '1e500'$"
wait_for "$work/err" "^acl-agent: reload refused; the state in force stays$"
kill -0 "$pid" 2>/dev/null || fail "acl-agent died on a bad reload: $(cat "$work/err")"
grep -q "changes)" "$work/err" && fail "a refused document was applied: $(cat "$work/err")"
has ns-red 10.0.20.1 || fail "the red VIP went with the refused document"

# The good document, replaced by rename as editors do.
sed -e '/192.0.2.7/d; s#10.0.20.1/24#10.0.20.1/25#' \
  -e 's#"address": "10.0.30.1/25",#& "namespace": "ns-red",#' "$root/examples/state.json" \
  >"$work/next.json"
mv "$work/next.json" "$work/etc/state.json"
wait_for "$work/err" "^acl-agent: published $work/etc/state.json, phase 1 of 2: 3 virtual IPs withdrawn$"
wait_for "$work/err" "^acl-agent: published $work/etc/state.json: 4 interfaces, 2 VRFs, 4 IPv4 VIPs, 2 IPv6 VIPs (7 changes)$"
# count NS VIP: how many of VIP's iptables rules NS holds.
count() { rules "$1" | grep -c -- "-d $2/32"; }
# arp NS VERB SUBNET DEV VIP: whether the stand-in recorded that subnet rule's VERB in NS.
arp() {
  grep -qxF -- "[$1] $2 OUT -d $3 -o $4 -a 6 --arpop Request -j mangle --mangle-hw-s \
02:1c:73:00:00:99 --mangle-ip-s $5" "$FHRP_ARPTABLES_LOG"
}
moved() {
  [ "$(count default 192.0.2.7)" -eq 0 ] && [ "$(count ns-red 10.0.20.1)" -eq 2 ] &&
    [ "$(count ns-blue 10.0.30.1)" -eq 0 ] && [ "$(count ns-red 10.0.30.1)" -eq 2 ] &&
    arp ns-red -D 10.0.20.0/24 vlan20 10.0.20.1 && arp ns-red -A 10.0.20.0/25 vlan20 10.0.20.1 &&
    arp ns-blue -D 10.0.30.0/25 vlan30 10.0.30.1 && arp ns-red -A 10.0.30.0/25 vlan30 10.0.30.1
}
eventually moved || fail "rules not where the new document puts them: $(rules ns-red; rules ns-blue;
  cat "$FHRP_ARPTABLES_LOG")"
grep "%FHRP_" "$work/err" && fail "the plug-in logged failures"
"$agent" metrics >"$work/metrics"
grep -Eqx "acl_agent_reloads_refused_total [1-9]" "$work/metrics" &&
  grep -Eqx "acl_agent_reloads_applied_total [1-9]" "$work/metrics" || fail "reloads counted wrong: $(grep reloads "$work/metrics")"

# A configuration tool replaces the state file's folder: the watch follows
# the folder by its path and the new folder's document is published.
mv "$work/etc" "$work/etc.old"
mkdir "$work/etc"
cp "$root/examples/state.json" "$work/etc/state.json"
wait_for "$work/err" "^acl-agent: watching $work/etc again (the folder was replaced)$"
wait_for "$work/err" \
  "^acl-agent: published $work/etc/state.json: 4 interfaces, 2 VRFs, 5 IPv4 VIPs, 2 IPv6 VIPs ([0-9]* changes)$"
stop_agent
echo PASS
