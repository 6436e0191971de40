# Shared by the Redis source's end-to-end tests (sourced after agent_common.sh).
# shellcheck shell=bash
# Servers run inside the test's sandbox on Unix sockets in $work, with no
# persistence; every process started here is stopped at exit.
started=()
trap 'for p in "${started[@]}"; do kill -TERM "$p" 2>/dev/null; wait "$p" 2>/dev/null; done; rm -rf "$work"' EXIT

# start_redis NAME: redis-server on $work/NAME.sock; its pid in $redis_pid.
start_redis() {
  rm -f "$work/$1.sock"
  redis-server --port 0 --unixsocket "$work/$1.sock" --unixsocketperm 700 --save '' \
    --appendonly no --dir "$work" --daemonize no >"$work/$1.log" 2>&1 &
  redis_pid=$!
  started+=("$redis_pid")
  eventually redis-cli -s "$work/$1.sock" ping >/dev/null 2>&1 ||
    fail "redis-server $1 did not start: $(cat "$work/$1.log")"
}

# rcli NAME ARGS...: redis-cli on NAME's socket, database 6.
rcli() {
  local name="$1"
  shift
  redis-cli -s "$work/$name.sock" -n 6 "$@"
}

# load NAME FILE: a redis-cli script (as examples/redis-state.txt) into an emptied server.
load() {
  rcli "$1" FLUSHALL >/dev/null
  redis-cli -s "$work/$1.sock" <"$2" >/dev/null || fail "cannot load $2"
}

# follow LOG ARGS...: acl-agent ARGS... in the background as $pid, stopped at exit.
follow() {
  agent_log="$1"
  shift
  timeout --foreground -s KILL 100 "$agent" "$@" >"$agent_log" 2>&1 &
  pid=$!
  started=("$pid" "${started[@]}")  # the agent stops first
}

# The mangle rules of every namespace the tests use, both families.
dump() {
  for ns in default ns-red ns-blue; do
    for tool in iptables ip6tables; do
      echo "== $ns $tool"
      rules "$ns" "$tool"
    done
  done
}

# status_has PATTERN: the agent's status (JSON) holds PATTERN.
status_has() { "$agent" status --json | tr -d " \n" | grep -q -- "$1"; }

# The two VRF namespaces of the example rows, once the plug-in is there to run.
vrf_namespaces() {
  need_plugin
  ip netns add ns-red
  ip netns add ns-blue
}
