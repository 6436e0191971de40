#!/usr/bin/env bash
# Mutation run: puts each one-line fault of tests/mutations.txt into the
# source tree in turn, rebuilds build/mutate (its own debug build, so that
# build/debug is never disturbed), runs ctest there, restores the file and
# says which tests failed. A fault no test notices shows a test to write.
#
#   scripts/mutate.sh [--list FILE] [--only N[,M...]]
#
# A list line is `path:line: FROM => TO`: the first FROM on that line becomes
# TO (TO may be empty); lines starting with # are comments. A FROM that is
# no longer on its line is STALE (the code moved: fix the list), never
# counted; a fault that does not build is NOCOMPILE, counted as killed but
# shown apart. Score: killed / (total - stale). The output of the tests that
# killed mutant N stays in build/mutate/mutant-N.log. Run it niced on a shared
# machine: nice -n 15 scripts/mutate.sh
set -euo pipefail
cd "$(dirname "$0")/.."
list=tests/mutations.txt
only=""
while [ $# -gt 0 ]; do
  case "$1" in
    --list) list="${2:?--list needs a file}"; shift 2 ;;
    --only) only=",${2:?--only needs numbers},"; shift 2 ;;
    *) echo "usage: scripts/mutate.sh [--list FILE] [--only N[,M...]]" >&2; exit 2 ;;
  esac
done
dir=build/mutate
start=$SECONDS

applied=""              # the file a fault is in, while it is there
backup="$(mktemp)"      # its text before the fault
log="$(mktemp)"
restore() {
  [ -n "$applied" ] || return 0
  cat "$backup" >"$applied"
  # Newer than any object built from the fault: every build folder of this
  # tree recompiles the file (putting the old time back would leave them
  # holding the faulty object).
  touch "$applied"
  applied=""
}
trap 'restore; rm -f "$backup" "$log"' EXIT
trap 'exit 130' INT TERM

build() { cmake --build "$dir" >"$log" 2>&1; }
# Runs every test; $failed: the names of those that failed, comma separated.
run_tests() {
  failed=""
  ctest --test-dir "$dir" -j2 --output-on-failure >"$log" 2>&1 && return 0
  failed="$(sed -n '/^The following tests FAILED:/,$p' "$log" |
    sed -nE 's/^[[:space:]]+[0-9]+ - (.+) \([^)]*\)$/\1/p' |
    sed -E 's/ +# GetParam\(\) = .*//' | paste -sd, - | sed 's/,/, /g')"
  [ -n "$failed" ] || failed="ctest itself: $(tail -n 1 "$log")"
}

if [ ! -f "$dir/build.ninja" ]; then
  launcher=()
  # A compiler cache turns the restoring rebuilds into cache hits.
  command -v ccache >/dev/null &&
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER="env;CCACHE_NOHASHDIR=true;ccache")
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" >"$log" 2>&1 ||
    { cat "$log"; exit 1; }
fi
build || { cat "$log"; echo "mutate: the tree does not build as it is" >&2; exit 1; }
run_tests
[ -z "$failed" ] || { echo "mutate: tests fail without any fault: $failed" >&2; exit 1; }

total=0 killed=0 stale=0 nocompile=0 n=0
while IFS= read -r raw || [ -n "$raw" ]; do
  [[ "$raw" =~ ^[[:space:]]*(#|$) ]] && continue
  n=$((n + 1))
  [ -z "$only" ] || [[ "$only" == *",$n,"* ]] || continue
  if ! [[ "$raw" =~ ^([^:]+):([0-9]+):\ (.*\ =>.*)$ ]]; then
    echo "mutate: $list: not \`path:line: FROM => TO\`: $raw" >&2
    exit 2
  fi
  file="${BASH_REMATCH[1]}" line="${BASH_REMATCH[2]}" rest="${BASH_REMATCH[3]}"
  from="${rest%% =>*}" to="${rest#* =>}"
  to="${to# }"
  total=$((total + 1))
  where="$(printf '%3d %s:%s' "$n" "$file" "$line")"
  text="$(sed -n "${line}p" "$file" 2>/dev/null)"
  if [ -z "$from" ] || [[ "$text" != *"$from"* ]]; then
    stale=$((stale + 1))
    echo "$where  STALE (no \"$from\" on the line)"
    continue
  fi
  began=$SECONDS
  cp "$file" "$backup"
  applied="$file"
  FROM="$from" TO="$to" awk -v n="$line" 'NR == n {
      i = index($0, ENVIRON["FROM"])
      $0 = substr($0, 1, i - 1) ENVIRON["TO"] substr($0, i + length(ENVIRON["FROM"]))
    } { print }' "$backup" >"$file"
  if ! build; then
    killed=$((killed + 1)) nocompile=$((nocompile + 1))
    echo "$where  NOCOMPILE ($((SECONDS - began)) s)"
  elif run_tests; [ -n "$failed" ]; then
    killed=$((killed + 1))
    echo "$where  KILLED by $failed ($((SECONDS - began)) s)"
    cp "$log" "$dir/mutant-$n.log"  # what the tests said, to check a kill
  else
    echo "$where  SURVIVED ($((SECONDS - began)) s)"
  fi
  restore
done <"$list"

counted=$((total - stale))
echo "score: $killed / $counted killed ($nocompile of them by the compiler), $stale stale;" \
  "$((SECONDS - start)) s"
