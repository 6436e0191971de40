#!/usr/bin/env bash
# A refused state document at start-up ends acl-agent with status 1 and a
# message naming the file, the place and the reason, before any plug-in runs;
# bad usage ends it with status 2.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"

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

sed 's/"interfaces": \["Vlan20"\]/"interfaces": ["Vlan99"]/' "$root/examples/state.json" \
  >"$work/intf.json"
expect 1 "acl-agent: $work/intf.json: /virtualIps/3/interfaces/0: unknown interface \"Vlan99\"" \
  --state "$work/intf.json"

expect 1 "acl-agent: $work/missing.json: cannot read: No such file or directory" \
  --state "$work/missing.json"
expect 2 "acl-agent: --trace VirtualIpArpMangleSm/9" --trace VirtualIpArpMangleSm/9
expect 2 "acl-agent: unknown argument \"--frobnicate\"" --frobnicate

# Refused before loading the plug-in: not one flush ran.
[ ! -s "$FHRP_ARPTABLES_LOG" ] || fail "arptables ran: $(cat "$FHRP_ARPTABLES_LOG")"
echo PASS
