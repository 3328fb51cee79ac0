#!/usr/bin/env bash
# Usage: malformed_input.sh SECAPP VQXSIM BYTES_OF_A_POINTER
# Malformed input: every case ends soon, with the status and the text in its row, and without a sanitizer's report.
set -euo pipefail
secapp=$1 vqxsim=$2 pointer=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

mkdir folder
mkfifo fifo
: >empty
printf '0123456789abcdef' >image
printf 'a%%n%%s' >'%n%s'
printf '\0\0\0' >zeros

# run NAME STATUS TEXT COMMAND...: the text is a part of standard output or error.
run() {
    local name=$1 wanted=$2 text=$3 status=0
    shift 3
    timeout 30 "$@" >output 2>&1 </dev/null || status=$?
    [[ $status == "$wanted" ]] || fail "$name: status $status instead of $wanted"
    [[ -z $text ]] || grep -aqF -- "$text" output || fail "$name: does not print '$text'"
    ! grep -aqE 'Sanitizer|runtime error:|Internal error' output || fail "$name: crashed"
}

# device STATUS TEXT PATH: secapp on something that is not a serial device.
device() { run "device '$3'" "$1" "$2" "$secapp" -d "$3" targetInfo; }

# on_target STATUS TEXT WORD...: secapp on a simulated target.
on_target() { run "${*:3}" "$1" "$2" "$vqxsim" -- "$secapp" -d {} "${@:3}"; }

# region STATUS TEXT REGION COMMAND
region() { run "region ${3:0:60}" "$1" "$2" "$vqxsim" --region "$3" -- "$secapp" -d {} "$4"; }

# closed STATUS TEXT REDIRECTION: programs with standard streams that are gone or full.
closed() {
    run "streams $3" "$1" "$2" "$vqxsim" -- \
        bash -c "\"\$1\" -d \"\$2\" 'program image MORVI; verify image MORVI' $3; s=\$?; echo ended; exit \$s" - "$secapp" {}
}

# These take some seconds, in which the rest runs.
# No process opens the other end of the pipe, and no alarm can end the wait.
(
    mkdir patient && cd patient && mkfifo fifo
    run 'pipe without a writer' 1 'Unable to open script file fifo' \
        perl -MPOSIX -e 'sigprocmask(SIG_BLOCK, POSIX::SigSet->new(SIGALRM)); exec @ARGV' "$secapp" -b -d none -s fifo
    ((failures == 0))
) &
patient=$!
# An alarm that was set before the start still ends the run (128 + 14).
(
    mkdir alarmed && cd alarmed && mkfifo fifo
    exec 7<>fifo
    echo 'delay 20000000' >&7
    # shellcheck disable=SC2016
    run 'alarm of the caller' 142 '' bash -c 'perl -e "alarm 1; exec @ARGV" "$@"; exit $?' - "$secapp" -b -d none -s fifo
    ((failures == 0))
) &
alarmed=$!

device 255 'Is a directory' folder
device 255 'Inappropriate ioctl' fifo
device 255 'Inappropriate ioctl' empty
device 255 'Inappropriate ioctl' /dev/zero
device 255 '%n%n: No such file' '%n%n'

on_target 1 'Unable to open script file folder' -s folder
on_target 1 'Unable to open script file /dev/zero' -s /dev/zero
on_target 0 '' -s empty
on_target 255 'Script could not be read to its end' -s /proc/self/mem
on_target 255 'holds a zero byte' -s zeros
on_target 255 "Cannot open program file 'folder'" program folder MORVI
on_target 255 "Cannot open program file 'fifo'" program fifo MORVI
on_target 255 "Cannot open program file '/dev/zero'" program /dev/zero MORVI
on_target 255 'could not be read to its end' download /proc/self/mem
on_target 0 'Programmed 0 bytes' program empty MORVI
# A file whose size says 0, but which has data.
on_target 0 "Downloaded $(wc -c </proc/version) bytes" download /proc/version
on_target 0 'Programmed 5 bytes' program '%n%s' MORVI
on_target 255 "Cannot open verify file '%n%n'" verify '%n%n' MORVI

region 255 'No matching memory found A' A,base=0,size=0 'program image A'
region 255 'Memory A has no page size' A,base=0,page=0 'program image A'
region 0 'Verified 16 bytes' A,base=0,buffer=0 'program image A; verify image A'
region 0 'Verified 16 bytes' A,base=0,size=1024,page=4,buffer=6 'program image A; verify image A'
region 0 'Verified 16 bytes' A,base=0xfffff000,size=0xfff,page=1,buffer=1000,blank=0 'program image A; verify image A'
region 0 'Verified 16 bytes' '%n%s,base=0' 'program image %n%s; verify image %N%S'
if ((pointer == 8)); then
    region 0 'Verified 16 bytes' A,base=0,size=0xf0000000,buffer=0xe0000000 'program image A; verify image A'
else
    region 255 '4026531840 bytes of memory: Cannot allocate memory' A,base=0,size=0xf0000000 'program image A'
fi
region 0 'Verified 16 bytes' "$(printf 'N%.0s' {1..5000}),base=0" 'program image 0; verify image 0'

many=()
for ((i = 0; i < 2000; ++i)); do
    many+=(--region "R$i,base=$((i * 4096)),size=4096,page=256,buffer=256")
done
run '2,000 regions' 0 'Verified 16 bytes' "$vqxsim" "${many[@]}" -- \
    "$secapp" -d {} 'program image R1999; verify image R1999'

closed 0 'Verified 16 bytes' '<&-'
closed 255 'Bad file descriptor' '>&-'
closed 0 'ended' '2>&-'
closed 255 'No space left on device' '>/dev/full'
closed 0 'Verified 16 bytes' '2>/dev/full'

run 'unplugged device' 255 'Input/output error' "$vqxsim" --fault unplug,at=3 -- \
    "$secapp" -g 0 -d {} 'queryFlash; queryFlash; queryFlash'
grep -q '^Device /dev/.* is gone$' output || fail 'unplugged device: does not name it'

# The first secapp keeps its port until its standard input ends.
# shellcheck disable=SC2016
run 'second host' 255 'Device or resource busy' "$vqxsim" -- bash -c '
    mkfifo script
    "$1" -d "$2" -t <script >first 2>&1 &
    exec 7>script
    echo targetInfo >&7
    until grep -aq PartID first; do sleep 0.02; done
    "$1" -d "$2" targetInfo
    status=$?
    exec 7>&-
    wait
    exit $status' - "$secapp" {}
grep -q 'Held by secapp (process ' output || fail 'second host: does not name the holder'

# Settings of the port are found again after an answer "q", help, a failure and a success.
# shellcheck disable=SC2016
run 'settings of the port' 0 'same same same same' "$vqxsim" -- bash -c '
    before=$(stty -g <"$2")
    same() { [[ $(stty -g <"$2") == "$before" ]] && printf "same " || printf "changed "; }
    echo q | "$1" -d "$2" -p targetInfo >log 2>&1; same "$@"
    "$1" -d "$2" "?" >log 2>&1; same "$@"
    "$1" -d "$2" nonsense >log 2>&1; same "$@"
    "$1" -d "$2" targetInfo >log 2>&1; same "$@"' - "$secapp" {}

wait "$patient" || failures=$((failures + 1))
wait "$alarmed" || failures=$((failures + 1))
