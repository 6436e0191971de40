#!/usr/bin/env bash
# Installs what the build, the tests and the demo need on a Debian 12 machine,
# skipping what is already there. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(g++ clang cmake ninja-build pkg-config googletest libgtest-dev libgmock-dev
  libbenchmark-dev nlohmann-json3-dev iproute2 iptables arptables util-linux iputils-ping)
# dpkg-shlibdeps: the library dependencies of the .deb that cpack builds.
packages+=(dpkg-dev)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
else
  echo "setup: all packages present"
fi
