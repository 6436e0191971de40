#!/usr/bin/env bash
# The Debian package, installed into a scratch root (dpkg -x): its layout and
# unit, and the installed acl-agent run from there. It finds its plug-in and
# platform library in ../lib/acl-agent, makes the example's rules, tells the
# service manager (a socket of the test's own, as NOTIFY_SOCKET) READY=1 once
# they are made, RELOADING=1 and READY=1 around a SIGHUP reload, STOPPING=1
# on SIGTERM. Arguments: acl-agent, the build folder, notify_listener.
# Skipped (77) without cpack or dpkg-deb.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
build="$2"
listener="$3"
need_plugin
for tool in cpack dpkg-deb; do
  command -v "$tool" >/dev/null || { echo "SKIP: no $tool to build or unpack the package"; exit 77; }
done

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/pkg" >"$work/cpack.log" 2>&1 ||
  fail "cpack: $(cat "$work/cpack.log")"
deb="$(ls "$work"/pkg/acl-agent_*.deb)" || fail "no .deb in $work/pkg"
dpkg-deb -x "$deb" "$work/root" || fail "dpkg-deb -x $deb"
r="$work/root"
for f in usr/bin/acl-agent usr/lib/acl-agent/VirtualIpArpTablesPlugin.so \
  usr/lib/acl-agent/libplatform.so etc/acl-agent/state.json etc/acl-agent/state.example.json; do
  [ -f "$r/$f" ] || fail "not in the package: $f"
done
unit="$r/usr/lib/systemd/system/acl-agent.service"
# shellcheck disable=SC2016 # $MAINPID is the unit's, not ours
for line in "Type=notify" "ExecStart=/usr/bin/acl-agent --state /etc/acl-agent/state.json" \
  'ExecReload=/bin/kill -HUP $MAINPID' "Restart=on-failure"; do
  grep -qxF -- "$line" "$unit" || fail "no \"$line\" in the unit: $(cat "$unit")"
done
dpkg-deb -f "$deb" Depends | grep -q iptables || fail "the package does not depend on iptables"
dpkg-deb -f "$deb" Depends | grep -q libhiredis || fail "the package does not depend on hiredis"

# --until-idle, the default plug-in, a notify socket named by its path.
ip netns add ns-red
ip netns add ns-blue
"$listener" "$work/notify" 60 >"$work/notes1" 2>&1 &
listener_pid=$!
trap 'kill "$listener_pid" 2>/dev/null; rm -rf "$work"' EXIT
wait_for "$work/notes1" LISTENING
NOTIFY_SOCKET="$work/notify" timeout 60 "$r/usr/bin/acl-agent" \
  --state "$r/etc/acl-agent/state.example.json" --until-idle 2>"$work/err" ||
  fail "the installed acl-agent exited $?: $(cat "$work/err")"
has ns-red "-d 10.0.20.1/32 -i vlan20" || fail "no rule for 10.0.20.1 in ns-red"
wait_for "$work/notes1" "^READY=1$"
kill "$listener_pid"

# As the service runs: an abstract notify socket, a reload, a stop.
iptables -t mangle -F PREROUTING
"$listener" "@acl-agent-test-$$" 60 >"$work/notes2" 2>&1 &
wait_for "$work/notes2" LISTENING
NOTIFY_SOCKET="@acl-agent-test-$$" "$r/usr/bin/acl-agent" \
  --state "$r/etc/acl-agent/state.example.json" 2>"$work/err2" &
agent_pid=$!
trap 'kill "$agent_pid" 2>/dev/null; rm -rf "$work"' EXIT
wait_for "$work/notes2" "^READY=1$"
# Ready means the rules are made.
has default "-d 10.0.10.1/32 -i vlan10" || fail "READY=1 before the rules were made"
kill -HUP "$agent_pid"
wait_for "$work/notes2" "^RELOADING=1 MONOTONIC_USEC=[0-9]*$"
wait_for "$work/err2" "(0 changes)"
ready_again() { sed '1,/^RELOADING=1/d' "$work/notes2" | grep -qx "READY=1"; }
eventually ready_again || fail "no READY=1 after RELOADING=1: $(cat "$work/notes2")"
kill -TERM "$agent_pid"
wait "$agent_pid" || fail "acl-agent exited $? on SIGTERM: $(cat "$work/err2")"
wait_for "$work/notes2" "^STOPPING=1$"
echo PASS
