#!/usr/bin/env bash
# Usage: secapp_read.sh PROGRAMS SECAPP_READ MAN_PAGE
# Reads a simulated target's memory and compares it with the target's own file, byte by byte. A failure
# must leave the file as it was and no other file. Compares the options of man page and program.
set -euo pipefail
export LC_ALL=C

export PATH=$1:$PATH
secapp_read=$2
man_page=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"
mkdir memory kept

# "${target[@]}" SIMULATOR_OPTION... -- COMMAND...: a target with two adjacent memories
target=(vqxsim --region "FLASH,base=0x10000000,size=16K" --region "BANKB,base=0x10004000,size=1K" --memory memory)

"${target[@]}" -- secapp -d {} queryFlash >output
head -c 16384 /dev/urandom >memory/FLASH.bin
head -c 1024 /dev/urandom >memory/BANKB.bin
cat memory/FLASH.bin memory/BANKB.bin >both

# Address and length, then offset and number of the bytes that must be read
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
0x10003ff0 16 16368 16
268435456 1026 0 1026
CASES

ln -s read link
chmod 640 read
[[ $EUID -ne 0 ]] || chown 1:2 read
before=$(stat -c '%a %u %g' read)
"${target[@]}" -- "$secapp_read" {} FLASH 16K link >output 2>&1
check "the file that a link names" cmp read memory/FLASH.bin
check "the mode and owner of a file that existed" test "$(stat -c '%a %u %g' read)" = "$before"
"${target[@]}" -- "$secapp_read" {} FLASH 16K - >copy 2>output
check "the bytes on standard output" cmp copy memory/FLASH.bin

# fails WORDS STATUS FAULT SECAPP ARGUMENT...: the output contains WORDS; the file is unchanged, and there is no other
fails() {
    local words=$1 wanted=$2 fault=$3 secapp=$4 status=0
    shift 4
    echo kept >kept/file
    "${target[@]}" ${fault:+--fault "$fault"} -- timeout 30 "$secapp_read" --secapp "$secapp" {} "$@" >output 2>&1 || status=$?
    check "status $status of $fault $secapp $*" test "$status" -eq "$wanted"
    check "the text of $fault $secapp $*" grep -qF -e "$words" output
    check "the files after $fault $secapp $*" test "$(cat kept/* kept/.[!.]* 2>/dev/null)" = kept
}

fails 'FLASH ends at 0x10003fff: it has 16 bytes' 1 '' secapp 0x10003ff0 17 kept/file
fails '0x10004400 is in no flash region' 1 '' secapp BANKB+1024 4 kept/file
fails "'FACE' is neither a number nor a memory" 1 '' secapp FACE 4 kept/file
fails '0x10000102 is not the address of a word' 1 '' secapp FLASH+0x102 4 kept/file
fails "'FLASH;erase' is not an address" 2 '' secapp 'FLASH;erase' 4 kept/file
fails "'010' is not a number of bytes" 2 '' secapp FLASH 010 kept/file
fails 'kept is not a regular file' 1 '' secapp FLASH 4 kept
fails 'kept/none: No such file' 1 '' secapp FLASH 4 kept/none/file
fails '-p cannot be used' 2 '' 'secapp -p' FLASH 4 kept/file
fails '-e cannot be used' 2 '' 'timeout 9 secapp -g 1 -ze n' FLASH 4 kept/file
readonly at=command=readWord,at=300
fails '0x10000498: worn out' 1 "error,text=worn out,$at" secapp FLASH 4K kept/file
fails '0x10000498: expected a word' 1 "noise,bytes=1,lines=0,$at" secapp FLASH 4K kept/file
fails '0x10000498: expected a word' 1 "flood,bytes=endless,$at" secapp FLASH 4K kept/file
fails '0x10000498: Resource temporarily unavailable' 1 "cut,$at" 'secapp -g 1' FLASH 4K kept/file
fails '0x10000498: Device ' 1 "unplug,$at" secapp FLASH 4K kept/file
while read -r change words; do
    printf '#!/bin/bash\nsecapp "$@" | sed -u "%s"\n' "$change" >changed
    fails "$words" 1 '' 'bash changed' FLASH 4K kept/file
done <<'CASES'
302d expected a word, got b''
302p expected a word, got b'0x
302s/0x// expected a word, got b'
302{N;p} the answers are not those of the commands
CASES

# Interrupted while the target is silent
"${target[@]}" --fault "hang,s=100,$at" --link board >output 2>&1 &
simulator=$!
at_exit="kill $simulator"
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
