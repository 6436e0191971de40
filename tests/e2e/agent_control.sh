#!/usr/bin/env bash
# The control socket and the agent's start-up guards, against the real agent:
# a control folder another user could write is refused; idle clients do not
# hold back phase 2 of a reload (making room for a request is
# ControlServerTest's); a refused document whose error text is not UTF-8
# leaves status working, and the next good one clears the refusal; a second agent, on a socket of its own, stops
# before it runs anything and names the first one's pid.
#   agent_control.sh ACL_AGENT IDLE_CLIENTS
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin
idle_clients="$2"

# state PREFIX: writes the state file (by rename): 10.0.20.1/PREFIX on Vlan20.
state() {
  printf '{ "interfaces": {"Vlan20": {"device": "vlan20"}},
  "virtualRouterMac": {"lumo": "02:1c:73:00:00:99"},
  "virtualIps": [{"vrf": "default", "address": "10.0.20.1/%s", "interfaces": ["Vlan20"]}] }\n' \
    "$1" >"$work/next.json"
  mv "$work/next.json" "$work/state.json"
}
state 24
# reloaded N: waits until the agent has published N reloads.
published() { [ "$(grep -c "^acl-agent: published $work/state.json: .* changes)$" "$work/err")" -ge "$1" ]; }
reloaded() { eventually published "$1" || fail "reload $1 not published: $(cat "$work/err")"; }

# Control folders that another user could write: OWNER MODE, then what the agent says.
while read -r owner mode why; do
  mkdir "$work/ctl" && chown "$owner" "$work/ctl" && chmod "$mode" "$work/ctl"
  timeout 60 "$agent" --control "$work/ctl/control.sock" --state "$work/state.json" --until-idle \
    >/dev/null 2>"$work/err"
  rc=$?
  [ "$rc" -eq 1 ] || fail "exit $rc with $owner $mode: $(cat "$work/err")"
  grep -qxF "acl-agent: --control: $work/ctl: $why" "$work/err" ||
    fail "$owner $mode: $(cat "$work/err")"
  rm -rf "$work/ctl"
done <<TABLE
nobody 0700 owned by uid $(id -u nobody), not by root: its owner could replace the socket
root 0770 writable by group or others (mode 0770): they could replace the socket
root 1733 writable by group or others (mode 1733): they could replace the socket
TABLE
has default 10.0.20.1 && fail "a refused agent installed rules"

start_agent "$work/err" --state "$work/state.json"
wait_for "$work/err" "^acl-agent: published $work/state.json: "
eventually has default 10.0.20.1/32 || fail "10.0.20.1 was never installed"

# idle N [GAP_MS]: N idle clients (idle_clients) from here on, as $idlers_pid.
idlers_pid=""
trap 'kill $idlers_pid 2>/dev/null; kill -TERM "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$work"' EXIT
idle() {
  [ -z "$idlers_pid" ] || { kill "$idlers_pid"; wait "$idlers_pid" 2>/dev/null; }
  coproc idlers { exec "$idle_clients" "$control" "$@"; }
  idlers_pid="$idlers_PID"
  read -r line <&"${idlers[0]}"
  [ "$line" = CONNECTED ] || fail "idle_clients did not connect"
}

# Idle clients spread over more than their 2 s, each made again when dropped:
# never a moment without one. Phase 2 of a reload (another prefix length)
# still comes once the agent has no work left.
idle 10 250
state 25
wait_for "$work/err" "phase 1 of 2: 1 virtual IPs withdrawn$"
reloaded 1
kill "$idlers_pid"

# A refused document whose error text holds the byte 0xff.
printf '{"virtualIps": [], "bad\xff": 1}\n' >"$work/next.json"
mv "$work/next.json" "$work/state.json"
wait_for "$work/err" "^acl-agent: reload refused; the state in force stays$"
"$agent" status >"$work/status" 2>&1 || fail "status after a non-UTF-8 refusal: $(cat "$work/status")"
grep -q '^          last refused .*\\xFF' "$work/status" ||
  fail "the refusal is not shown escaped: $(cat "$work/status")"
"$agent" status --json >"$work/status" 2>&1 || fail "status --json: $(cat "$work/status")"
state 24
reloaded 2
"$agent" status >"$work/status" 2>&1 || fail "status after a good reload"
grep -q "last refused" "$work/status" && fail "a good reload left the refusal: $(cat "$work/status")"

# A second agent on a socket of its own: stopped by the host lock.
agent_pid="$(pgrep -P "$pid")"
before="$(rules default; cat "$FHRP_ARPTABLES_LOG" 2>/dev/null)"
timeout 60 "$agent" --control "$work/second.sock" --state "$work/state.json" --until-idle \
  >/dev/null 2>"$work/second"
rc=$?
[ "$rc" -eq 1 ] || fail "a second agent exited $rc: $(cat "$work/second")"
grep -qxF "acl-agent: another agent runs on this host (pid $agent_pid, holding /run/acl-agent.lock); this one runs nothing" \
  "$work/second" || fail "unexpected message: $(cat "$work/second")"
[ "$before" = "$(rules default; cat "$FHRP_ARPTABLES_LOG" 2>/dev/null)" ] ||
  fail "the second agent touched the rules"
[ -e "$work/second.sock" ] && fail "the second agent opened its control socket"
"$agent" status >/dev/null || fail "the first agent stopped answering"
stop_agent
echo PASS
