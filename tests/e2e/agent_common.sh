# Shared by the agent's end-to-end tests (sourced, not a test itself).
# shellcheck shell=bash
# Called as `source agent_common.sh "$@"` with acl-agent's path first. Re-runs
# the test inside scripts/sandbox.sh (exit 77, "skipped", where none can be
# made; with the host's real arptables when the test set
# FHRP_E2E_REAL_ARPTABLES=1), then provides $root (the source tree), $plugin, $work (a scratch
# folder removed at exit, where the arptables stand-in logs), $control (a
# socket in $work: no test may use the default under /run) and $agent (a
# wrapper that adds --control $control unless given), and the helpers below.
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
if [ "${FHRP_AGENT_E2E_INSIDE:-}" != 1 ]; then
  real=()
  [ "${FHRP_E2E_REAL_ARPTABLES:-}" != 1 ] || real=(--no-stand-ins)
  FHRP_AGENT_E2E_INSIDE=1 exec "$root/scripts/sandbox.sh" "${real[@]}" "$0" "$@"
fi
agent="$1"
plugin="$(dirname "$agent")/VirtualIpArpTablesPlugin.so"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export FHRP_ARPTABLES_LOG="$work/arptables.log"
control="$work/control.sock"
real_agent="$agent"
agent="$work/acl-agent"
{
  echo '#!/bin/sh'
  echo 'case " $* " in *" --control "* | *" --control="*) exec '"'$real_agent'"' "$@" ;; esac'
  echo 'case "$1" in status | verify | metrics) m="$1"; shift; set -- "$m" --control '"'$control'"' "$@" ;;'
  echo '  *) set -- --control '"'$control'"' "$@" ;;'
  echo 'esac'
  echo 'exec '"'$real_agent'"' "$@"'
} >"$agent"
chmod +x "$agent"

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

# The plug-in is built by its own target; without it there is nothing to run.
need_plugin() {
  [ -f "$plugin" ] || { echo "SKIP: $plugin is not built"; exit 77; }
}

# eventually CMD...: polls up to 20 s until CMD succeeds.
eventually() {
  for _ in $(seq 200); do
    "$@" && return 0
    sleep 0.1
  done
  return 1
}

wait_for() {
  eventually grep -q -- "$2" "$1" 2>/dev/null || fail "no \"$2\" in $1 after 20 s: $(cat "$1")"
}

# The mangle PREROUTING rules of TOOL (iptables) in namespace NS ("default": the sandbox's own).
rules() {
  if [ "$1" = default ]; then "${2:-iptables}" -t mangle -S PREROUTING
  else ip netns exec "$1" "${2:-iptables}" -t mangle -S PREROUTING; fi
}

# Whether NS holds a TOOL (iptables) rule matching PATTERN: has NS PATTERN [TOOL].
has() { rules "$1" "${3:-iptables}" | grep -- "$2" >/dev/null; }

# acl-agent ARGS... in the background as $pid, its output in LOG; stopped at exit.
start_agent() {
  agent_log="$1"
  shift
  timeout --foreground -s KILL 100 "$agent" "$@" >"$agent_log" 2>&1 &
  pid=$!
  trap 'kill -TERM "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$work"' EXIT
}

# SIGTERM ends acl-agent with status 0.
stop_agent() {
  kill -TERM "$pid"
  wait "$pid" || fail "acl-agent exited $? on SIGTERM: $(cat "$agent_log")"
}
