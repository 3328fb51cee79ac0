#!/usr/bin/env bash
# Usage: examples.sh PROGRAMS SOURCE WORDS
# Runs every example as its second line says, and the commands for a board on another host if there is socat. Compares the
# command words of the word list and of the examples with those that the programs' help lists.
set -euo pipefail
export LC_ALL=C

programs=$1
source_directory=$2
words=$3
export PATH=$programs:$PATH

# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

cp -R "$source_directory/examples" .
cd examples

try() {
    local command
    command=$(sed -n 's/^# Try it: //p' "$1")
    [[ -n $command ]] || fail "$1 does not say how to try it"
    (cd "$(dirname "$1")" && bash -c "$command") </dev/null >output 2>&1 ||
        fail "$1: status $? from: $command"
}

for script in *.secapp ci/*.secapp; do
    try "$script"
done
ci/check_scripts firmware.bin ci/flash.secapp >output 2>&1 || fail "ci/check_scripts: status $?"
rm output

known=$(vqxsim -- secapp -d {} -H |
    sed -nE '/^Supported high-level/,$ { s/^    ([A-Za-z]+) .*/\1/p; s/^\t([A-Za-z_]+) .*/\1/p }')
[[ $(wc -w <<<"$known") -gt 20 ]] || fail "the help lists too few commands: $known"
for word in $known targetInfo download; do
    grep -qx "$word" "$words" || fail "$word is not in the list of words"
done
while read -r word; do
    grep -qw "$word" -- *.secapp || fail "no example has the command $word"
done <"$words"

command -v socat >/dev/null || skip "there is no socat"
port=$((10000 + $$ % 20000))
mapfile -t commands < <(sed -nE "/^socat /{ s/5000/$port/; s,/dev/ttyACM0,served,; s/HOST/127.0.0.1/; p }" README.md)
expect "commands of socat" 2 "${#commands[@]}"
# start COMMAND CONDITION...: starts it in the background and waits until the condition is true or the command has ended.
start() {
    $1 &
    at_exit+="; kill $! 2>/dev/null || :"
    while kill -0 $! && ! "${@:2}"; do sleep 0.02; done
}
mkdir served_memory
start 'vqxsim --link served --memory served_memory' test -e served >output
start "${commands[0]}" grep -qE "$(printf ':%04X 0+:0000 0A ' "$port")" /proc/net/tcp /proc/net/tcp6
start "${commands[1]}" test -e board
check "a board on another host" secapp -d board 'targetInfo; program firmware.bin FLASH; verify firmware.bin FLASH' >output 2>&1
check "the image on another host" cmp -n 3001 firmware.bin served_memory/FLASH.bin
