#!/usr/bin/env bash
# Installs what the build, the tests and the demo need on a Debian 12 machine,
# skipping what is already there. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(g++ clang cmake ninja-build pkg-config googletest libgtest-dev libgmock-dev
  libbenchmark-dev nlohmann-json3-dev iproute2 iptables arptables util-linux iputils-ping)
# dpkg-shlibdeps: the library dependencies of the .deb that cpack builds.
packages+=(dpkg-dev)
# The nftables applier (libnftables; libnftnl and libmnl for set elements;
# nft for its benchmark), the Redis source (hiredis; redis-server and
# keepalived for its end-to-end tests), metrics over HTTP, the journal, and
# the service unit under a real systemd.
packages+=(libnftables-dev libnftnl-dev libmnl-dev nftables libhiredis-dev redis-server redis-tools
  keepalived libmicrohttpd-dev libsystemd-dev python3-prometheus-client curl debootstrap systemd-container)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  # Servers among the packages (redis-server, keepalived) must never start on
  # this machine: tests run them in their own sandboxes only.
  guard=""
  if [ ! -e /usr/sbin/policy-rc.d ]; then
    guard=/usr/sbin/policy-rc.d
    printf '#!/bin/sh\nexit 101\n' | $sudo tee "$guard" >/dev/null
    $sudo chmod +x "$guard"
  fi
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
  [ -z "$guard" ] || $sudo rm -f "$guard"
  if [ -d /run/systemd/system ]; then
    $sudo systemctl disable --now redis-server keepalived nftables >/dev/null 2>&1 || true
  fi
else
  echo "setup: all packages present"
fi
