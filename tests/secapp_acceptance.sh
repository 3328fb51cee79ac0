#!/usr/bin/env bash
# Usage: secapp_acceptance.sh PROGRAMS SECAPP_ACCEPTANCE MAN_PAGE
# The acceptance of simulated targets: good ones, faulty ones, and one that sends what no program may run.
set -euo pipefail

programs=$1
acceptance=$2
man_page=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

# accept STATUS WORDS SIMULATOR_OPTION...: the status and the last line of the acceptance of a target with one memory
accept() {
    local wanted=$1 words=$2 status=0
    shift 2
    "$programs/vqxsim" "$@" -- "$acceptance" --programs "$programs" --yes --otp 1,2 {} >output 2>&1 || status=$?
    [[ $status -eq $wanted && $(grep -v ' never ' output | tail -n 1) == *"$words"* ]] || fail "status $status of $*"
}

printf '%s\n' 'NAME=Odd' 'page = 4' 'Base=0xFFFFFE00' 'buffer= 64' 'Size = 0x100' 'Blank=0' >board
accept 0 'Accepted: all ' --like board
check 'a check of the memory' grep -qxF 'ok    Odd: the last word of the page as well' output

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
