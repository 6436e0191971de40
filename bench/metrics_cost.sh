#!/usr/bin/env bash
# What serving metrics costs the agent while it converges: N virtual IPs
# (default 5,000, /32 on 16 interfaces, default namespace) installed from
# start-up to idle (`--until-idle`), timed, alternately
#   plain   no --metrics-listen;
#   scraped --metrics-listen 127.0.0.1:9641 and a client scraping GET
#           /metrics 100 times a second (one kept-alive connection) all along.
# Medians of RUNS pairs are printed with their ratio, and the agent's own
# CPU time (what the metrics add to it, without the client's share of a
# busy machine). Real iptables and
# arptables (through the adapter), so it runs only inside a sandbox:
#
#   scripts/sandbox.sh --no-stand-ins bench/metrics_cost.sh ACL_AGENT [N] [RUNS] [per-line|batch]
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/../scripts/lib/require-sandbox.sh" metrics_cost
agent="$1"
n="${2:-5000}"
runs="${3:-5}"
apply="${4:-batch}"
work="$(mktemp -d)"
trap 'kill "$scraper" 2>/dev/null || true; rm -rf "$work"' EXIT
scraper=""

/usr/bin/python3 - "$n" >"$work/state.json" <<'DOC'
import json, sys
n = int(sys.argv[1])
d = {"interfaces": {"Vlan%d" % i: {"device": "vlan%d" % i} for i in range(16)},
     "virtualIps": [{"vrf": "default", "address": "10.%d.%d.%d/32" % (i >> 16, (i >> 8) & 255, i & 255),
                     "interfaces": ["Vlan%d" % (i % 16)]} for i in range(1, n + 1)]}
json.dump(d, sys.stdout)
DOC

scrape() {
  exec /usr/bin/python3 - "$work/scrapes" <<'PY'
import http.client, sys, time
count, conn = 0, None
next_at = time.monotonic()
while True:
    try:
        conn = conn or http.client.HTTPConnection("127.0.0.1", 9641, timeout=5)
        conn.request("GET", "/metrics")
        conn.getresponse().read()
        count += 1
        open(sys.argv[1], "w").write("%d\n" % count)
    except OSError:
        conn = None
    next_at += 0.01
    time.sleep(max(0, next_at - time.monotonic()))
PY
}

# One run: seconds from start to idle exit.
run() {
  local extra=() start end
  [ "$1" = scraped ] && extra=(--metrics-listen 127.0.0.1:9641)
  if [ "$1" = scraped ]; then
    : >"$work/scrapes"
    scrape &
    scraper=$!
    sleep 0.5 # the client is up and retrying before the clock starts
  fi
  start="$(date +%s.%N)"
  /usr/bin/time -f "%U %S" -o "$work/cpu" "$agent" --state "$work/state.json" --until-idle \
    --apply "$apply" --arptables stock --control "$work/control.sock" "${extra[@]}" \
    >/dev/null 2>"$work/err" ||
    { echo "acl-agent failed: $(tail -3 "$work/err")" >&2; exit 1; }
  end="$(date +%s.%N)"
  if [ -n "$scraper" ]; then
    kill "$scraper"
    wait "$scraper" 2>/dev/null || true
    scraper=""
  fi
  awk '{ print $1 + $2 }' "$work/cpu" >>"$work/cpu-$1"
  echo "$end - $start" | bc
}

median() { sort -n | awk '{ a[NR] = $1 } END { print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'; }
: >"$work/plain"
: >"$work/scraped"
: >"$work/cpu-plain"
: >"$work/cpu-scraped"
run plain >/dev/null # warm-up: page cache, modules
for i in $(seq "$runs"); do
  run plain >>"$work/plain"
  run scraped >>"$work/scraped"
  echo "run $i: plain $(tail -1 "$work/plain") s, scraped $(tail -1 "$work/scraped") s ($(cat "$work/scrapes") scrapes)"
done
p="$(median <"$work/plain")"
s="$(median <"$work/scraped")"
echo "$n virtual IPs, $apply, $runs runs each: median plain $p s, scraped $s s, ratio $(echo "scale=4; $s / $p" | bc)"
cp="$(tail -n "$runs" "$work/cpu-plain" | median)"
cs="$(tail -n "$runs" "$work/cpu-scraped" | median)"
echo "the agent's own CPU time (user+sys, children not counted), median: plain $cp s, scraped $cs s"
