# Shared by the agent's end-to-end tests (sourced, not a test itself).
# shellcheck shell=bash
# Called as `source agent_common.sh "$@"` with the path of acl-agent as the
# test's first argument. Re-runs the calling test inside scripts/sandbox.sh
# (which exits 77, "skipped", where no sandbox can be made), then provides:
#   $root    the source tree      $agent   acl-agent, through a wrapper that
#                                          adds --control $control unless given
#   $plugin  the plug-in beside it  $control  a socket path in $work (no test
#                                          may use the default under /run)
#   $work    a scratch folder, removed at exit; the arptables stand-in logs
#            to $FHRP_ARPTABLES_LOG in it
#   fail MSG, wait_for FILE PATTERN (polls up to 20 s), need_plugin
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
if [ "${FHRP_AGENT_E2E_INSIDE:-}" != 1 ]; then
  FHRP_AGENT_E2E_INSIDE=1 exec "$root/scripts/sandbox.sh" "$0" "$@"
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
  echo 'case "$1" in status | verify) m="$1"; shift; set -- "$m" --control '"'$control'"' "$@" ;;'
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

wait_for() {
  for _ in $(seq 200); do
    grep -q -- "$2" "$1" 2>/dev/null && return 0
    sleep 0.1
  done
  fail "no \"$2\" in $1 after 20 s: $(cat "$1")"
}
