#!/usr/bin/env bash
# A running acl-agent refuses a malformed document given on reload (SIGHUP
# and the file's change) and keeps running on the state in force; a good
# document is then applied; SIGTERM ends it with status 0.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin

ip netns add ns-red
ip netns add ns-blue
cp "$root/examples/state.json" "$work/state.json"
start_agent "$work/err" --state "$work/state.json"
wait_for "$work/err" "^acl-agent: published $work/state.json: 4 interfaces"
eventually has ns-red 10.0.20.1 || fail "the red VIP was never installed"

# Malformed (a number no double holds, where nothing reads it): written over
# the file (the change is seen) and signalled.
printf '{"virtualIps": [],\n "x": 1e500}\n' >"$work/state.json"
kill -HUP "$pid"
wait_for "$work/err" "^acl-agent: $work/state.json: line 2, column 11: number overflow parsing '1e500'$"
wait_for "$work/err" "^acl-agent: reload refused; the state in force stays$"
kill -0 "$pid" 2>/dev/null || fail "acl-agent died on a bad reload: $(cat "$work/err")"
grep -q "changes)" "$work/err" && fail "a refused document was applied: $(cat "$work/err")"
has ns-red 10.0.20.1 || fail "the red VIP went with the refused document"

# A good document without the red VIP, replaced by rename as editors do.
grep -v '"vrf": "red", "address": "10.0.20.1/24"' "$root/examples/state.json" >"$work/next.json"
mv "$work/next.json" "$work/state.json"
wait_for "$work/err" "^acl-agent: published $work/state.json: 4 interfaces, 2 VRFs, 4 IPv4 VIPs, 2 IPv6 VIPs (1 changes)$"
eventually eval '! has ns-red 10.0.20.1' || fail "the red VIP's rules stayed after its removal"
stop_agent
echo PASS
