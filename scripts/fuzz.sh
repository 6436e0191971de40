#!/usr/bin/env bash
# Fuzzes the key text parsers with libFuzzer (clang, AddressSanitizer, leak
# checking). Usage: scripts/fuzz.sh [runs]   (default 200000)
# Builds in build/fuzz; a fault leaves crash-* in build/fuzz/findings, which
# `build/fuzz/bin/key_parser_fuzz_driver FILE` replays.
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-200000}"
dir=build/fuzz

# Every object gets coverage and ASan, so that libFuzzer sees the parser's
# branches and ASan checks its memory; the fuzzer binary adds libFuzzer's main.
CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFHRP_FUZZ=ON -DFHRP_SANITIZE=ON -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build "$dir" -j "$(nproc)" --target key_parser_fuzzer key_parser_fuzz_driver

corpus="$dir/corpus"
mkdir -p "$corpus" "$dir/findings"
"$dir/bin/key_parser_fuzz_driver" --write-seeds "$corpus"
ASAN_OPTIONS=detect_leaks=1 "$dir/bin/key_parser_fuzzer" -runs="$runs" -max_len=4096 \
  -artifact_prefix="$dir/findings/" "$corpus"
