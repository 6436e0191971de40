#!/usr/bin/env bash
# The arptables adapter on its own, with a recording tool as "the host's
# arptables" (PATH holds nothing else): it runs the first arptables past
# its own folder with the translated line and returns that tool's status;
# an untranslatable line is refused with one message and runs nothing.
# Then the host's real arptables (the sandbox's own tables) takes the
# plug-in's add and delete through it.
set -uo pipefail
# shellcheck source=tests/e2e/agent_common.sh
source "$(dirname "$0")/agent_common.sh" "$@"
adapter="$(dirname "$real_agent")/../libexec/acl-agent/arptables"
[ -x "$adapter" ] || { echo "SKIP: $adapter is not built"; exit 77; }

mkdir "$work/tool"
printf '#!/bin/sh\nprintf "%%s\\n" "$*" >>"%s"\nexit 3\n' "$work/ran" >"$work/tool/arptables"
chmod +x "$work/tool/arptables"
# The adapter's own folder twice: it must pass over itself wherever it stands.
path="$(dirname "$adapter"):$work/tool:$(dirname "$adapter")"

PATH="$path" "$adapter" -A OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle \
  --mangle-hw-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1
rc=$?
[ "$rc" -eq 3 ] || fail "status $rc, not the tool's 3"
[ "$(cat "$work/ran")" = "-A OUTPUT -d 10.1.1.0/24 -o vlan10 --h-length 6 --opcode Request -j \
mangle --mangle-mac-s 02:00:00:00:01:01 --mangle-ip-s 10.1.1.1" ] || fail "ran: $(cat "$work/ran")"

PATH="$path" "$adapter" -A OUT -d 10.1.1.0/24 --mangle-hw-d 02:00:00:00:01:01 2>"$work/err"
rc=$?
[ "$rc" -eq 2 ] || fail "refused with status $rc, not 2"
[ "$(cat "$work/err")" = 'arptables (acl-agent adapter): refused, unknown option "--mangle-hw-d": arptables -A OUT -d 10.1.1.0/24 --mangle-hw-d 02:00:00:00:01:01' ] ||
  fail "message: $(cat "$work/err")"
[ "$(wc -l <"$work/ran")" -eq 1 ] || fail "the refused line ran: $(cat "$work/ran")"

real="$(PATH=/usr/sbin:/usr/bin:/sbin:/bin command -v arptables)" || { echo "SKIP: no arptables"; exit 77; }
rule="OUT -d 10.1.1.0/24 -o vlan10 -a 6 --arpop Request -j mangle --mangle-hw-s 02:00:00:00:01:01 \
--mangle-ip-s 10.1.1.1"
# shellcheck disable=SC2086 # the rule is words
PATH="$(dirname "$adapter"):$(dirname "$real")" "$adapter" -A $rule || fail "the real arptables refused the add"
"$real" -L OUTPUT -n | grep -q -- "-d 10.1.1.0/24 --opcode 1 --mangle-ip-s 10.1.1.1 --mangle-mac-s 02:00:00:00:01:01" ||
  fail "not the rule: $("$real" -L OUTPUT -n)"
# shellcheck disable=SC2086
PATH="$(dirname "$adapter"):$(dirname "$real")" "$adapter" -D $rule || fail "the real arptables refused the delete"
[ "$("$real" -L OUTPUT -n | grep -c mangle)" -eq 0 ] || fail "the rule stayed: $("$real" -L OUTPUT -n)"
echo PASS
