#!/usr/bin/env bash
# Fuzzes the key text parsers, the state-document parser and the plug-in's
# listing parser (iptables -S and arptables -L lines) with libFuzzer
# (clang, AddressSanitizer, leak checking).
#
#   scripts/fuzz.sh [RUNS]        each target for RUNS inputs (default 200000)
#   scripts/fuzz.sh --seconds N   each target for about N seconds (CI)
#
# Builds in build/fuzz. Each target starts from its seeds in tests/fuzz/corpus
# (new finds go to build/fuzz/corpus, never into the repo). A fault leaves
# crash-* in build/fuzz/findings; the target replays it when given the file:
# `build/fuzz/bin/state_document_fuzzer FILE` (or key_parser_fuzzer,
# listing_parser_fuzzer).
set -euo pipefail
cd "$(dirname "$0")/.."
limit=(-runs="${1:-200000}")
if [ "${1:-}" = --seconds ]; then
  limit=(-max_total_time="${2:?--seconds needs a number}")
fi
dir=build/fuzz

# Every object gets coverage and ASan, so that libFuzzer sees the parsers'
# branches and ASan checks their memory; the fuzzer binaries add libFuzzer's main.
CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFHRP_FUZZ=ON -DFHRP_SANITIZE=ON -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build "$dir" -j "$(nproc)" --target key_parser_fuzzer state_document_fuzzer \
  listing_parser_fuzzer

mkdir -p "$dir/corpus/keys" "$dir/corpus/state" "$dir/corpus/listing" "$dir/findings"
export ASAN_OPTIONS=detect_leaks=1
"$dir/bin/key_parser_fuzzer" "${limit[@]}" -max_len=4096 -artifact_prefix="$dir/findings/" \
  "$dir/corpus/keys" tests/fuzz/corpus/keys
"$dir/bin/state_document_fuzzer" "${limit[@]}" -max_len=8192 -dict=tests/fuzz/state.dict \
  -artifact_prefix="$dir/findings/" "$dir/corpus/state" tests/fuzz/corpus/state
"$dir/bin/listing_parser_fuzzer" "${limit[@]}" -max_len=4096 -artifact_prefix="$dir/findings/" \
  "$dir/corpus/listing" tests/fuzz/corpus/listing
