#!/usr/bin/env bash
# The .deb under a real systemd: a Debian 12 root (debootstrap, cached in
# /var/cache/acl-agent-test/bookworm between runs) with the package
# installed is booted with `systemd-nspawn --boot --private-network`, inside
# the test's own sandbox (private network and mount namespaces, a private
# /run; each run writes to an overlay, the cached root stays as made).
# In the container:
#  - `systemctl start acl-agent` returns with the unit active only once the
#    agent said READY=1: its rules (iptables; the ARP rule through the
#    adapter and the stock arptables) are there by then;
#  - `kill -STOP` of the agent gets it restarted by the watchdog (the drop-in
#    shortens WatchdogSec= to 6 s to keep the test short);
#  - journalctl finds the failing rule's entry by its MESSAGE_ID and fields
#    (an iptables in /usr/local/sbin, first on the unit's PATH after the
#    adapter, fails the rules of 10.0.66.1).
# Skipped (77), with the reason, where the root cannot be made or the
# container cannot boot. Arguments: acl-agent, the build folder.
set -uo pipefail
# What the root holds besides the base: the package's runtime dependencies.
# The cache is named by this list, so a new dependency makes a new root.
includes=systemd,systemd-sysv,dbus,iptables,arptables,iproute2,curl,libmicrohttpd12,libhiredis0.14,libnftables1,procps
cache="${ACL_AGENT_TEST_CACHE:-/var/cache/acl-agent-test}/bookworm-$(printf %s "$includes" | sha256sum | cut -c1-12)"
skip() {
  echo "SKIP: $*"
  exit 77
}

# Outside the sandbox (debootstrap needs the network), in a mount namespace
# of its own so that its /proc and /sys mounts never reach the host: the
# cached root, made once.
if [ "${FHRP_AGENT_E2E_INSIDE:-}" != 1 ]; then
  for tool in debootstrap systemd-nspawn nsenter cpack dpkg-deb curl; do
    command -v "$tool" >/dev/null || skip "no $tool"
  done
  if [ ! -x "$cache/usr/bin/systemctl" ]; then
    mirror="$(sed -n 's/^URIs: *\([^ ]*\).*/\1/p' /etc/apt/sources.list.d/debian.sources 2>/dev/null |
      head -1)"
    [ -n "$mirror" ] || mirror="$(awk '$1 == "deb" { print $2; exit }' /etc/apt/sources.list 2>/dev/null)"
    mkdir -p "$(dirname "$cache")"
    rm -rf "$cache.tmp"
    echo "making the cached root with debootstrap from ${mirror:-?} (once)"
    unshare --mount --propagation private debootstrap --variant=minbase \
      --include="$includes" \
      bookworm "$cache.tmp" "$mirror" >"$cache.log" 2>&1 ||
      skip "debootstrap failed (log in $cache.log): $(tail -2 "$cache.log")"
    mv "$cache.tmp" "$cache"
  fi
fi
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
build="$2"
need_plugin

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/pkg" >"$work/cpack.log" 2>&1 ||
  fail "cpack: $(cat "$work/cpack.log")"
deb="$(ls "$work"/pkg/acl-agent_*.deb)" || fail "no .deb in $work/pkg"

r="$work/root"
mkdir "$work/upper" "$work/wd" "$r"
mount -t overlay acl-agent-test -o "lowerdir=$cache,upperdir=$work/upper,workdir=$work/wd" "$r" ||
  skip "cannot mount an overlay over the cached root"
cp "$deb" "$r/tmp/acl-agent.deb"
chroot "$r" dpkg -i /tmp/acl-agent.deb >"$work/dpkg.log" 2>&1 || fail "dpkg -i: $(cat "$work/dpkg.log")"

# The document, a failing iptables, and the test's drop-in.
cat >"$r/etc/acl-agent/state.json" <<'DOC'
{ "interfaces": { "Vlan10": { "device": "vlan10" } },
  "virtualRouterMac": { "lumo": "02:1c:73:00:00:99" },
  "virtualIps": [ { "vrf": "default", "address": "10.0.10.1/24", "interfaces": ["Vlan10"] },
                  { "vrf": "default", "address": "10.0.66.1/32", "interfaces": ["Vlan10"] } ] }
DOC
printf '#!/bin/sh\ncase "$*" in *" -d 10.0.66.1 "*) exit 1 ;; esac\nexec /usr/sbin/iptables "$@"\n' \
  >"$r/usr/local/sbin/iptables"
chmod +x "$r/usr/local/sbin/iptables"
mkdir -p "$r/etc/systemd/system/acl-agent.service.d"
cat >"$r/etc/systemd/system/acl-agent.service.d/test.conf" <<'DROPIN'
[Service]
WatchdogSec=6s
DROPIN

# nspawn makes the container's cgroups (payload/, supervisor/) below the
# caller's: the caller moves into a cgroup of its own first, in each
# hierarchy nspawn writes, and removes it all at the end.
cgroups=()
for h in /sys/fs/cgroup/systemd /sys/fs/cgroup/unified /sys/fs/cgroup; do
  [ -w "$h/cgroup.procs" ] || continue
  [ "$h" != /sys/fs/cgroup ] || [ -e "$h/cgroup.controllers" ] || continue
  own="$h$(awk -F: -v n="$([ "$h" = /sys/fs/cgroup/systemd ] && echo name=systemd)" '$2 == n { print $3 }' /proc/self/cgroup)"
  own="${own%/}/acl-agent-test-$$"
  mkdir "$own" && echo $$ >"$own/cgroup.procs" && cgroups+=("$own")
done
cleanup() {
  kill -TERM "$nspawn_pid" 2>/dev/null
  wait "$nspawn_pid" 2>/dev/null
  umount -l "$r" 2>/dev/null
  local g
  for g in "${cgroups[@]}"; do
    echo $$ >"$(dirname "$g")/cgroup.procs"
    find "$g" -depth -type d -exec rmdir {} \; 2>/dev/null
  done
  rm -rf "$work"
}
systemd-nspawn --boot --private-network --register=no --keep-unit --console=passive \
  --machine=acl-agent-test -D "$r" >"$work/boot.log" 2>&1 &
nspawn_pid=$!
trap cleanup EXIT
# The container's init: the child of nspawn that is PID 1 of its own namespace.
init_pid() {
  local p
  for p in $(pgrep -P "$nspawn_pid") $(pgrep -P "$(pgrep -P "$nspawn_pid" | head -1)" 2>/dev/null); do
    grep -qE '^NSpid:.*[[:space:]]1$' "/proc/$p/status" 2>/dev/null && { echo "$p"; return 0; }
  done
  return 1
}
eventually init_pid >/dev/null ||
  skip "systemd-nspawn did not start a container here: $(tail -5 "$work/boot.log")"
init="$(init_pid)"
c() { nsenter -t "$init" -m -u -i -n -p -C "$@"; }
booted() {
  local s
  s="$(c systemctl is-system-running 2>/dev/null)"
  [ "$s" = running ] || [ "$s" = degraded ]
}
eventually booted || eventually booted ||
  skip "the container's systemd did not boot within 40 s: $(tail -5 "$work/boot.log")"
c systemctl --failed --no-legend >"$work/failed"
echo "container booted ($(c systemctl is-system-running)); failed units: $(wc -l <"$work/failed")"

# Start: active only once READY=1 came, with the rules made by then.
c timeout 120 systemctl start acl-agent || fail "systemctl start: $(c journalctl -u acl-agent --no-pager | tail -20)"
[ "$(c systemctl show -p ActiveState --value acl-agent)" = active ] || fail "not active after start"
c iptables -t mangle -S PREROUTING | grep -q -- "-d 10.0.10.1/32 -i vlan10" ||
  fail "active, but no rule for 10.0.10.1: $(c iptables -t mangle -S PREROUTING)"
c arptables -L OUTPUT | grep -q -- "--mangle-ip-s 10.0.10.1 --mangle-mac-s 02:1c:73:00:00:99" ||
  fail "no ARP rule through the adapter: $(c arptables -L OUTPUT)"
c journalctl -u acl-agent --no-pager -o cat >"$work/journal"
published="$(grep -n "^acl-agent: published /etc/acl-agent/state.json" "$work/journal" | head -1 | cut -d: -f1)"
started="$(grep -n "^Started acl-agent.service\|^Started ACL agent" "$work/journal" | head -1 | cut -d: -f1)"
[ -n "$published" ] && [ -n "$started" ] && [ "$published" -lt "$started" ] ||
  fail "systemd called it started before the agent published: $(cat "$work/journal")"
grep -q "arptables: stock" "$work/journal" || fail "the probe did not find the stock arptables: $(grep arptables "$work/journal")"

# The failing rule in the journal, by its MESSAGE_ID and fields.
c journalctl -o export --no-pager MESSAGE_ID=6dfc065341ec429cb196ffb3fc70ae0e ACL_ADDRESS=10.0.66.1 \
  >"$work/entry"
for f in ACL_NAMESPACE=default ACL_ACTION=add ACL_DEVICE=vlan10 PRIORITY=4 SYSLOG_IDENTIFIER=acl-agent \
  "MESSAGE=%FHRP_IPTABLES_ERROR: Failed to add an iptables rule for virtual IP 10.0.66.1 on interface vlan10."; do
  grep -qxF "$f" "$work/entry" || fail "the journal entry lacks $f: $(cat "$work/entry")"
done

# A stopped loop: the watchdog kills it and systemd starts it again.
main="$(c systemctl show -p MainPID --value acl-agent)"
c kill -STOP "$main"
restarted() {
  local now
  now="$(c systemctl show -p MainPID --value acl-agent)"
  [ "$now" != "$main" ] && [ "$now" != 0 ] && [ "$(c systemctl show -p ActiveState --value acl-agent)" = active ]
}
eventually restarted || eventually restarted ||
  fail "not restarted 40 s after SIGSTOP: $(c systemctl status acl-agent --no-pager | tail)"
c journalctl -u acl-agent --no-pager -o cat | grep -q "Watchdog timeout" ||
  fail "restarted, but not by the watchdog: $(c journalctl -u acl-agent --no-pager | tail)"
echo "restarted by the watchdog (NRestarts=$(c systemctl show -p NRestarts --value acl-agent))"
c systemctl poweroff >/dev/null 2>&1
wait "$nspawn_pid" 2>/dev/null
echo PASS
