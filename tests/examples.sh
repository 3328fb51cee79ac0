#!/usr/bin/env bash
# Usage: examples.sh PROGRAMS SOURCE WORDS
# Runs every example as its second line says, and holds the command words in the word list and the examples against those
# that the programs themselves know.
set -euo pipefail
export LC_ALL=C

programs=$1
source_folder=$2
words=$3
export PATH=$programs:$PATH

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp -R "$source_folder/examples" "$folder/"
cd "$folder/examples"
failed=

fail() {
    printf '%s\n' "$@" >&2
    failed=yes
}

try() {
    local command
    command=$(sed -n 's/^# Try it: //p' "$1")
    [[ -n $command ]] || fail "$1 does not say how to try it"
    (cd "$(dirname "$1")" && bash -c "$command") </dev/null >"$folder/output" 2>&1 ||
        fail "$1: status $? from: $command" "$(tail -n 8 "$folder/output")"
}

for script in *.secapp ci/*.secapp; do
    try "$script"
done
ci/check_scripts firmware.bin ci/flash.secapp >"$folder/output" 2>&1 ||
    fail "ci/check_scripts: status $?" "$(cat "$folder/output")"

known=$(vqxsim -- secapp -d {} -H |
    sed -nE '/^Supported high-level/,$ { s/^    ([A-Za-z]+) .*/\1/p; s/^\t([A-Za-z_]+) .*/\1/p }')
[[ $(wc -w <<<"$known") -gt 20 ]] || fail "the help lists too few commands: $known"
for word in $known targetInfo download; do
    grep -qx "$word" "$words" || fail "$word is not in the list of words"
done
while read -r word; do
    grep -qw "$word" -- *.secapp || fail "no example has the command $word"
done <"$words"
[[ -z $failed ]]
