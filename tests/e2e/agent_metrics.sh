#!/usr/bin/env bash
# Metrics, journal fields and the control socket's permissions, with the
# real tools. The example document plus a namespace that does not exist
# (ns-gone: its flushes fail, its pair is dropped) and an iptables in front
# of the real one that fails the rules of 10.0.66.1 in ns-green; 200 more
# virtual IPs keep the agent converging for a few seconds.
#  - while it converges, GET /metrics answers and any other request gets
#    404/405;
#  - `acl-agent metrics` parses as Prometheus text (python3-prometheus-client)
#    and its figures match `status --json`; GET /metrics gives the same text;
#  - with --log journal, each message reaches the journal socket (here the
#    test's own listener on the sandbox's /run/systemd/journal/socket; the
#    real journald is in agent_nspawn.sh) with its MESSAGE_ID and fields;
#    without it, the stderr line is the one it always was;
#  - only root reaches the socket (0600); made 0666 by hand, others read
#    status and metrics, but a repair stays root's.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
need_plugin
py=/usr/bin/python3
$py -c 'import prometheus_client' 2>/dev/null ||
  { echo "SKIP: no python3-prometheus-client to parse the metrics"; exit 77; }
command -v curl >/dev/null || { echo "SKIP: no curl"; exit 77; }
here="$(dirname "$0")"

ip netns add ns-red
ip netns add ns-blue
ip netns add ns-green
mkdir "$work/bin"
printf '#!/bin/sh\ncase "$*" in *" -d 10.0.66.1 "*) exit 1 ;; esac\nexec %s "$@"\n' \
  "$(command -v iptables)" >"$work/bin/iptables"
chmod +x "$work/bin/iptables"
export PATH="$work/bin:$PATH"
$py "$here/metrics_document.py" "$root/examples/state.json" 200 >"$work/state.json"

# Outside the journal: the stderr line of a failed rule is unchanged.
timeout 120 "$agent" --state "$work/state.json" --until-idle 2>"$work/plain" >/dev/null ||
  fail "acl-agent --until-idle exited $?: $(tail "$work/plain")"
grep -qx "%FHRP_IPTABLES_ERROR: Failed to add an iptables rule for virtual IP 10.0.66.1 on interface vlan30." \
  "$work/plain" || fail "no plain FHRP_IPTABLES_ERROR line: $(grep % "$work/plain")"

# A journal socket of our own in the sandbox's private /run.
mkdir -p /run/systemd/journal
$py "$here/metrics_check.py" listen /run/systemd/journal/socket "$work/journal" &
journal_pid=$!
wait_for "$work/journal" LISTENING
port=9641
start_agent "$work/err" --state "$work/state.json" --log journal --metrics-listen "127.0.0.1:$port"
trap 'kill "$journal_pid" 2>/dev/null; kill -TERM "$pid" 2>/dev/null; wait "$pid" 2>/dev/null; rm -rf "$work"' EXIT
url="http://127.0.0.1:$port/metrics"

# While it converges: answers, and refusals.
busy() { curl -sf "$url" | grep -Eq '^acl_agent_backlog_size [1-9]'; }
eventually busy || fail "no scrape showed a backlog while converging: $(curl -s "$url" | grep backlog)"
code() { curl -s -o /dev/null -w '%{http_code}' "$@"; }
[ "$(code -X POST "$url")" = 405 ] || fail "POST /metrics: $(code -X POST "$url")"
[ "$(code "http://127.0.0.1:$port/")" = 404 ] || fail "GET /: not 404"
[ "$(code "http://127.0.0.1:$port/status")" = 404 ] || fail "GET /status: not 404"
# (The refusals come right after a scrape that showed a backlog; whether the
# last of it drained meanwhile depends on the machine's load, so it is not
# asserted: the agent going on to converge below is the point.)

idle() { "$agent" status --json 2>/dev/null | grep '"size": 0' >/dev/null; }
eventually idle || fail "the backlog never drained"
"$agent" metrics >"$work/metrics" || fail "acl-agent metrics exited $?"
curl -sf "$url" >"$work/scraped" || fail "GET /metrics failed"
cmp -s "$work/metrics" "$work/scraped" || fail "GET /metrics differs: $(diff "$work/metrics" "$work/scraped")"
"$agent" status --json >"$work/status"
$py "$here/metrics_check.py" compare "$work/metrics" "$work/status" "$work/journal" ||
  fail "metrics and status differ"

# The failing rule's journal entry and a flush failure's.
entry() { grep -F "MESSAGE_ID=$1" "$work/journal" | grep -F "$2" | head -1; }
rule="$(entry 6dfc065341ec429cb196ffb3fc70ae0e ACL_ADDRESS=10.0.66.1)"
for f in "PRIORITY=4" "ACL_NAMESPACE=ns-green" "ACL_ACTION=add" "ACL_DEVICE=vlan30" \
  "ACL_COMMAND=ip netns exec ns-green iptables -t mangle -A PREROUTING -p icmp -d 10.0.66.1 " \
  "MESSAGE=%FHRP_IPTABLES_ERROR: Failed to add an iptables rule for virtual IP 10.0.66.1 on interface vlan30."; do
  [[ "$rule" == *"$f"* ]] || fail "the rule's journal entry lacks $f: $rule"
done
flush="$(entry 4ce2dd77ab5e436c838a7ef0c3db50d7 ACL_NAMESPACE=ns-gone)"
[[ "$flush" == *"ACL_COMMAND=ip netns exec ns-gone arptables -F OUT"* ]] ||
  fail "no arptables flush entry for ns-gone: $(grep ns-gone "$work/journal")"
grep -q '^%FHRP' "$work/err" && fail "with --log journal a message still went to stderr"

# Who may ask.
chmod 0755 "$work"
as_nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups "$real_agent" "$@" --control "$control"; }
as_nobody status >/dev/null 2>"$work/denied" && fail "a user other than root read status"
grep -q "Permission denied" "$work/denied" || fail "not refused by the socket's mode: $(cat "$work/denied")"
chmod 0666 "$control"
as_nobody status >/dev/null || fail "status refused on a socket opened to all"
# (Into a file first: grep -q ends the pipe early, and pipefail would then see
# the client's SIGPIPE.)
as_nobody metrics >"$work/nobody.metrics" && grep -q '^acl_agent_pairs_installed ' "$work/nobody.metrics" ||
  fail "metrics refused on a socket opened to all"
as_nobody verify --repair >/dev/null 2>"$work/repair" && fail "a user other than root repaired"
grep -q "repair is root's only" "$work/repair" || fail "repair refused for another reason: $(cat "$work/repair")"
"$agent" verify --repair >"$work/root-repair" 2>&1  # exits 2: ns-gone cannot be read back
grep -q "^repair: " "$work/root-repair" || fail "root's repair refused: $(cat "$work/root-repair")"
echo PASS
