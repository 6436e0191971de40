#!/usr/bin/env bash
# The shipped systemd unit, installed with the build (cmake --install into a
# scratch root): `systemd-analyze verify` passes, `systemd-analyze security
# --offline=true` rates it below 4.0 (the score is printed), and the
# capabilities it keeps are the ones the tools need, measured: with only
# its CapabilityBoundingSet= (capsh --drop of everything else), iptables,
# ip6tables, arptables through the adapter and `ip netns exec` make and
# list their rules; without CAP_NET_ADMIN iptables fails, without
# CAP_SYS_ADMIN `ip netns exec` does. Both analyses read files only.
# Arguments: acl-agent, the build folder. Skipped (77) without
# systemd-analyze or capsh.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
build="$2"
for tool in systemd-analyze capsh; do
  command -v "$tool" >/dev/null || { echo "SKIP: no $tool"; exit 77; }
done

DESTDIR="$work/root" cmake --install "$build" --prefix /usr >"$work/install.log" 2>&1 ||
  fail "cmake --install: $(cat "$work/install.log")"
unit="$work/root/usr/lib/systemd/system/acl-agent.service"
[ -f "$unit" ] || fail "no unit installed"

# verify resolves ExecStart= on this machine: the built agent stands in for
# /usr/bin/acl-agent, nothing else changes.
mkdir "$work/check"
sed "s#^ExecStart=/usr/bin/acl-agent #ExecStart=$1 #" "$unit" >"$work/check/acl-agent.service"
systemd-analyze verify --man=no "$work/check/acl-agent.service" >"$work/verify" 2>&1 ||
  fail "systemd-analyze verify: $(cat "$work/verify")"
systemd-analyze security --offline=true "$unit" >"$work/security" 2>&1
score="$(sed -n 's/.*Overall exposure level for acl-agent.service: \([0-9.]*\) \([A-Z]*\).*/\1 \2/p' "$work/security")"
echo "systemd-analyze security --offline=true: $score"
[ -n "$score" ] || fail "no score: $(tail -3 "$work/security")"
awk -v s="${score% *}" 'BEGIN { exit !(s < 4.0) }' || fail "exposure $score, not below 4.0"

# The capabilities, measured with the real tools (no stand-ins).
PATH="$(tr ':' '\n' <<<"$PATH" | grep -v /stand-ins | paste -sd:)"
adapter="$(dirname "$1")/../libexec/acl-agent"
kept="$(sed -n 's/^CapabilityBoundingSet=//p' "$unit" | tr 'A-Z ' 'a-z,')"
all="$(capsh --print | sed -n 's/^Bounding set =//p')"
except() { tr ',' '\n' <<<"$all" | grep -vxF -f <(tr ',' '\n' <<<"$1") | paste -sd,; }
with_only() {
  local keep="$1"
  shift
  capsh --drop="$(except "$keep")" -- -c "$*" >>"$work/caps.log" 2>&1
}
ip netns add ns-cap
tools='iptables -t mangle -A PREROUTING -d 10.0.0.1 -i vlan10 -j DROP &&
  ip6tables -t mangle -A PREROUTING -d 2001:db8::1 -i vlan10 -j DROP &&
  PATH='"$adapter"':$PATH arptables -A OUT -o vlan10 -a 6 --arpop Request -j mangle --mangle-ip-s 10.0.0.1 --mangle-hw-s 02:1c:73:00:00:99 &&
  ip netns exec ns-cap iptables -t mangle -A PREROUTING -d 10.0.0.2 -i vlan20 -j DROP &&
  ip netns exec ns-cap iptables -t mangle -S PREROUTING'
with_only "$kept" "$tools" || fail "the tools fail with only $kept: $(cat "$work/caps.log")"
has default "-d 10.0.0.1/32 -i vlan10" || fail "no iptables rule made with $kept"
has ns-cap "-d 10.0.0.2/32 -i vlan20" || fail "no rule made in ns-cap with $kept"
with_only "$(except cap_net_admin)" "iptables -t mangle -S PREROUTING" &&
  fail "iptables works without cap_net_admin: the unit may drop it"
with_only "$(except cap_sys_admin)" "ip netns exec ns-cap true" &&
  fail "ip netns exec works without cap_sys_admin: the unit may drop it"
echo "measured: iptables, ip6tables, arptables (adapter) and ip netns exec need exactly $kept"
echo PASS
