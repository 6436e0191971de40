#!/usr/bin/env bash
# Sets up, configures, builds and runs every test. Usage: scripts/test.sh [preset]
# (debug by default; asan and release work too).
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-debug}"

scripts/setup.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
