#!/usr/bin/env bash
# acl-agent on the example state with --until-idle: exits 0 after flushing
# the chains in every active VRF namespace and in the default one, and
# installs the example's virtual IP rules in the right namespaces. First a
# dry run of the same: every line written to its file, none run.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-red
ip netns add ns-blue
timeout 60 "$agent" --state "$root/examples/state.json" --until-idle --dry-run="$work/dry" \
  2>"$work/err" || fail "dry run exited $?: $(cat "$work/err")"
grep -qxF "ip netns exec ns-red iptables -t mangle -F PREROUTING" "$work/dry" &&
  grep -qF "iptables -t mangle -A PREROUTING -p all -d 10.0.10.1 -i vlan10" "$work/dry" ||
  fail "dry run lines: $(cat "$work/dry")"
[ ! -s "$FHRP_ARPTABLES_LOG" ] && ! has default 10.0.10.1 && ! grep -q "arptables: " "$work/err" ||
  fail "the dry run ran commands"
timeout 60 "$agent" --state "$root/examples/state.json" --until-idle 2>"$work/err" ||
  fail "acl-agent exited $?: $(cat "$work/err")"
grep -q "^acl-agent: published .*state.json: 4 interfaces, 2 VRFs, 5 IPv4 VIPs, 2 IPv6 VIPs$" \
  "$work/err" || fail "no summary line"
# The stand-in takes any line, so the start-up probe finds the native dialect.
grep -qx "acl-agent: arptables: native (the host's arptables lists chain OUT)" "$work/err" ||
  fail "no native dialect line"

# Each VRF's chains flushed once, through the VRFs the agent gave the plug-in
# (the flush lines themselves are pinned in process).
for ns in ns-red ns-blue default; do
  [ "$(grep -cxF -- "[$ns] -F OUT" "$FHRP_ARPTABLES_LOG")" -eq 1 ] ||
    fail "arptables flushes in $ns: $(cat "$FHRP_ARPTABLES_LOG")"
done

# The rules themselves, each in its VIP's namespace.
has ns-red "-d 10.0.20.1/32 -i vlan20" || fail "no rule for 10.0.20.1 in ns-red"
has ns-blue "-d 10.0.30.1/32 -i vlan30" || fail "no rule for 10.0.30.1 in ns-blue"
has default "-d 2001:db8:10::1/128 -i vlan10" ip6tables || fail "no 2001:db8:10::1 in default"
has default 10.0.20.1 && fail "a red VIP's rule landed in the default namespace"
echo PASS
