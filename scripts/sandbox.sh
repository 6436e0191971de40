#!/usr/bin/env bash
# Runs CMD inside a sandbox of its own: a fresh network namespace (only lo,
# up; no packet filter rules) and a private mount namespace with an empty
# tmpfs on /run, so `ip netns add`, the agent's control socket and every
# iptables, ip6tables or arptables command stay inside. The recording stand-ins (scripts/stand-ins,
# arptables among them) go first on PATH, unless --no-stand-ins asks for the
# host's real tools. Nothing made inside outlives CMD.
#
#   scripts/sandbox.sh [--no-stand-ins] CMD [ARG...]
#
# Exit status: CMD's; 77 (with the reason on stderr) when the sandbox cannot
# be made, e.g. without root; 2 on bad usage. Needs unshare (util-linux).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
inside=__fhrp_sandbox_inside__

if [ "${1:-}" != "$inside" ]; then
  stand_ins=on
  [ "${1:-}" != --no-stand-ins ] || { stand_ins=off; shift; }
  [ "$#" -gt 0 ] || { echo "usage: scripts/sandbox.sh [--no-stand-ins] CMD [ARG...]" >&2; exit 2; }
  # Probe first, so that a failing CMD is never mistaken for a missing sandbox.
  if ! why="$(unshare --net --mount --propagation private true 2>&1)"; then
    echo "sandbox: cannot make a private network and mount namespace: ${why:-unshare failed}" >&2
    exit 77
  fi
  exec unshare --net --mount --propagation private "$here/sandbox.sh" "$inside" "$stand_ins" "$@"
fi
stand_ins="$2"
shift 2

# Only ever go on inside a private network and mount namespace: the mounts
# and every command below would otherwise reach the host.
source "$(dirname "${BASH_SOURCE[0]}")/lib/require-sandbox.sh" sandbox

# From here on mounts are private to this namespace. A private /run: `ip
# netns add` (/run/netns), the agent's control socket (/run/acl-agent) and the
# xtables lock never reach the host's.
mount -t tmpfs -o mode=0755 fhrp-sandbox /run
mkdir /run/netns
ip link set lo up
[ "$stand_ins" = off ] || export PATH="$here/stand-ins:$PATH"
exec "$@"
