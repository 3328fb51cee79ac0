#!/usr/bin/env bash
# Usage: secapp_read.sh PROGRAMS SECAPP_READ MAN_PAGE
# Reads a simulated target's memory back and compares it with the target's own file, byte by byte; whatever goes wrong on
# the way leaves no file and touches none. Holds the man page's options against the program's.
set -euo pipefail
export LC_ALL=C

export PATH=$1:$PATH
secapp_read=$2
man_page=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir memory kept
failed=

check() {
    local what=$1
    shift
    "$@" || {
        echo "wrong: $what" >&2
        cat output >&2
        failed=yes
    }
}

# "${target[@]}" SIMULATOR_OPTION... -- COMMAND...: a target with 16 KiB of FLASH, an odd place for its memory and one behind it
target=(vqxsim --region "FLASH,base=0x10000000,size=16K" --region "BANKB,base=0x10004000,size=1K" --memory memory)

"${target[@]}" -- secapp -d {} queryFlash >output
head -c 16384 /dev/urandom >memory/FLASH.bin
head -c 1024 /dev/urandom >memory/BANKB.bin
cat memory/FLASH.bin memory/BANKB.bin >both

# What is asked for, and the place and number of the bytes that it means
while read -r address length offset count; do
    status=0
    "${target[@]}" -- "$secapp_read" {} "$address" "$length" read >output 2>&1 || status=$?
    check "status $status of $address $length" test "$status" -eq 0
    check "the bytes of $address $length" cmp read <(tail -c "+$((offset + 1))" both | head -c "$count")
done <<'CASES'
FLASH 16K 0 16384
bankb 0x400 16384 1024
FLASH+0x100 1 256 1
FLASH+2*0x100-4 7 508 7
0x10003ff0 18 16368 18
268435456 1026 0 1026
CASES

# fails WORDS STATUS FAULT ARGUMENT...: the text holds the WORDS; the file of that name stays, and nothing is left behind.
fails() {
    local words=$1 wanted=$2 fault=$3 status=0
    shift 3
    echo kept >kept/file
    "${target[@]}" ${fault:+--fault "$fault"} -- timeout 30 "$secapp_read" --secapp 'secapp -g 1' {} "$@" >output 2>&1 || status=$?
    check "status $status of $fault $*" test "$status" -eq "$wanted"
    check "the text of $fault $*" grep -qF -e "$words" output
    check "what $fault $* leaves" test "$(cat kept/* kept/.[!.]* 2>/dev/null)" = kept
}

fails '0x10004400: Address 0x10004400 is in no flash region' 1 '' BANKB 1025 kept/file
fails "'FACE' is neither a number nor a memory" 1 '' FACE 4 kept/file
fails '0x10000102 is not the address of a word' 1 '' FLASH+0x102 4 kept/file
fails "'FLASH;erase' is no address" 2 '' 'FLASH;erase' 4 kept/file
fails "'010' is no number of bytes" 2 '' FLASH 010 kept/file
fails 'kept is no regular file' 1 '' FLASH 4 kept
readonly at=command=readWord,at=300
fails '0x1000049c: worn out' 1 "error,text=worn out,$at" FLASH 4K kept/file
fails '0x1000049c: no word, but ' 1 "noise,$at" FLASH 4K kept/file
fails '0x1000049c: no word, but ' 1 "flood,bytes=endless,$at" FLASH 4K kept/file
fails '0x1000049c: Resource temporarily unavailable' 1 "drop,$at" FLASH 4K kept/file
fails '0x1000049c: Device ' 1 "unplug,$at" FLASH 4K kept/file

# Interrupted while the target is silent
"${target[@]}" --fault "hang,s=100,$at" --link board >output 2>&1 &
simulator=$!
trap 'kill "$simulator"; rm -rf "$folder"' EXIT
until [[ -e board ]]; do sleep 0.02; done
"$secapp_read" board FLASH 4K kept/file >output 2>&1 &
reader=$!
until compgen -G 'kept/.secapp-read.*' >/dev/null; do sleep 0.02; done
kill "$reader"
status=0
wait "$reader" || status=$?
check "status $status when interrupted" test "$status" -eq 130
check 'what an interrupted run leaves' test "$(cat kept/* kept/.[!.]* 2>/dev/null)" = kept

check "the options of $man_page" diff <("$secapp_read" --help | grep -oE -e '--[a-z]+' | sort -u) \
    <(sed -nE 's/^\.It Fl Fl ([a-z]+).*/--\1/p' "$man_page" | sort)
[[ -z $failed ]]
