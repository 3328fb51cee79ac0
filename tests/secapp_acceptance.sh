#!/usr/bin/env bash
# Usage: secapp_acceptance.sh PROGRAMS SECAPP_ACCEPTANCE MAN_PAGE
# The acceptance of simulated targets: good ones, faulty ones, and one that sends what no program may run.
set -euo pipefail

programs=$1
acceptance=$2
man_page=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

only=() # which memories to check

# accept STATUS WORDS SIMULATOR_OPTION...: the status and the last line of the acceptance of a target with one memory
accept() {
    local wanted=$1 words=$2 status=0
    shift 2
    "$programs/vqxsim" "$@" -- "$acceptance" --programs "$programs" --yes --otp 1,2 "${only[@]}" {} >output 2>&1 || status=$?
    [[ $status -eq $wanted && $(grep -v ' did not occur$' output | tail -n 1) == *"$words"* ]] || fail "status $status of $*"
}

# list NAME BASE SIZE PAGE BUFFER: a memory as a board's queryFlash lists it
list() {
    printf 'NAME=%s\nBase = %s\nsize= %s\nPage = %s\nbuffer=%s\nBlank = 0\n' "$@"
}

# Simulated targets with unusual memories: a page of 4 bytes, a single memory that ends at 0xFFFFFF00, and 200 memories
list Odd 0xFFFFFE00 256 4 64 >board
accept 0 'Accepted: all ' --like board
check 'a check of the memory' grep -qxF 'ok    Odd: the last word of the page as well' output
list Top 0xFFFFEF00 4096 0x100 512 >board
accept 0 'Accepted: all ' --like board
{
    echo 'Number of Flash Devices = 200'
    for ((number = 0; number < 200; ++number)); do list "M$number" $((number * 8192)) 010000 256 1024; done
} >board
only=(--memory M0 --memory M199)
accept 0 'Accepted: all ' --like board
only=()

small=(--region 'A,base=0,size=4K,page=64,buffer=256')
accept 2 'the target does not answer' "${small[@]}" --fault error,command=queryFlash
accept 1 'Not accepted: 1 of ' --region 'A;erase,base=0'
while read -r fault; do
    accept 1 'Not accepted: ' "${small[@]}" --fault "$fault"
done <<'FAULTS'
stuckprogram,addr=0x802,bit=3,silent=1
stuckerase,addr=0x802,bit=3,silent=1
flip,at=300
error,at=48
error,command=bootBank
noise,command=readWord,count=1
noise,command=print
unplug,at=700
FAULTS

# Every command of the target but "dump", which secapp never sends by itself
only=(--memory A)
accept 0 'Accepted: all ' --region 'A,base=0,size=4K,page=64,buffer=256' --region 'MORVI,base=64K,size=4K,page=64,buffer=256' --log log
only=()
"$programs/vqxsim" -- "$programs/secapp" -d {} helpadvanced | cut -d ' ' -f 1 | grep -vx dump | sort -u >commands
sed -nE 's/^[0-9. ]+> ([A-Za-z_]+).*/\1/p' log | sort -u >sent
check 'a command that is never sent' diff commands <(comm -12 commands sent)

# A target whose description a shell would run
mkdir hostile
cat >hostile/secapp <<ANSWER
#!/bin/sh
echo 'Name = A[\$(touch $directory/ran)]'
echo 'Size = A[\$(touch $directory/ran)]'
echo 'Name = B'
echo 'Base = A[\$(touch $directory/ran)]'
echo 'Size = 65536'
echo 'Page = \`touch $directory/ran\`'
ANSWER
chmod +x hostile/secapp
status=0
"$acceptance" --programs hostile --yes none >output 2>&1 || status=$?
expect 'the status with a hostile target' 1 "$status"
check 'no command of the target is run' test ! -e ran

printf 'n\n' | "$programs/vqxsim" "${small[@]}" -- "$acceptance" --programs "$programs" {} >output 2>&1 || true
check 'the answer "no"' grep -q 'nothing was changed$' output
"$acceptance" --help >output
check "the options of $man_page" diff <(grep -oE -e '--[a-z]+' output | sort -u) \
    <(sed -nE 's/^\.It Fl Fl ([a-z]+).*/--\1/p' "$man_page" | sort)
