#!/usr/bin/env bash
# Input that nobody means well: every case ends soon, with the status and the text that its row names, and without a
# sanitizer's report. Usage: hostile.sh SECAPP VQXSIM BYTES_OF_A_POINTER
set -euo pipefail
secapp=$1 vqxsim=$2 pointer=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

mkdir folder
mkfifo fifo
: >empty
printf '0123456789abcdef' >image
printf 'a%%n%%s' >'%n%s'
printf '\0\0\0' >zeros
failures=0

fail() {
    failures=$((failures + 1))
    echo "$1: $2" >&2
    sed 's/^/    /' output >&2
}

# expect NAME STATUS TEXT COMMAND...: the text is a part of standard output or error.
expect() {
    local name=$1 wanted=$2 text=$3 status=0
    shift 3
    timeout 30 "$@" >output 2>&1 </dev/null || status=$?
    [[ $status == "$wanted" ]] || fail "$name" "status $status instead of $wanted"
    [[ -z $text ]] || grep -aqF -- "$text" output || fail "$name" "does not say '$text'"
    ! grep -aqE 'Sanitizer|runtime error:|Internal error' output || fail "$name" "crashed"
}

# device STATUS TEXT PATH: the tool on something that is no serial device.
device() { expect "device '$3'" "$1" "$2" "$secapp" -d "$3" targetInfo; }

# tool STATUS TEXT WORD...: the tool on a simulated target.
tool() { expect "${*:3}" "$1" "$2" "$vqxsim" -- "$secapp" -d {} "${@:3}"; }

# region STATUS TEXT REGION COMMAND
region() { expect "region ${3:0:60}" "$1" "$2" "$vqxsim" --region "$3" -- "$secapp" -d {} "$4"; }

# closed STATUS TEXT REDIRECTION: programs with standard streams that are gone or full.
closed() {
    expect "streams $3" "$1" "$2" "$vqxsim" -- \
        bash -c "\"\$1\" -d \"\$2\" 'program image MORVI; verify image MORVI' $3; s=\$?; echo ended; exit \$s" - "$secapp" {}
}

# These take some seconds, in which the rest runs.
# Nobody ever opens the other end of the pipe, and no alarm can end the wait.
(
    mkdir patient && cd patient && mkfifo fifo
    expect 'pipe without a writer' 1 'Unable to open script file fifo' \
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
    expect 'alarm of the caller' 142 '' bash -c 'perl -e "alarm 1; exec @ARGV" "$@"; exit $?' - "$secapp" -b -d none -s fifo
    ((failures == 0))
) &
alarmed=$!

device 255 'Is a directory' folder
device 255 'Inappropriate ioctl' fifo
device 255 'Inappropriate ioctl' empty
device 255 'Inappropriate ioctl' /dev/zero
device 255 '%n%n: No such file' '%n%n'

tool 1 'Unable to open script file folder' -s folder
tool 1 'Unable to open script file /dev/zero' -s /dev/zero
tool 0 '' -s empty
tool 255 'Script could not be read to its end' -s /proc/self/mem
tool 255 'holds a zero byte' -s zeros
tool 255 "Cannot open program file 'folder'" program folder MORVI
tool 255 "Cannot open program file 'fifo'" program fifo MORVI
tool 255 "Cannot open program file '/dev/zero'" program /dev/zero MORVI
tool 255 'could not be read to its end' download /proc/self/mem
tool 0 'Programmed 0 bytes' program empty MORVI
# A file whose size says 0, but which has data.
tool 0 "Downloaded $(wc -c </proc/version) bytes" download /proc/version
tool 0 'Programmed 5 bytes' program '%n%s' MORVI
tool 255 "Cannot open verify file '%n%n'" verify '%n%n' MORVI

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
expect '2,000 regions' 0 'Verified 16 bytes' "$vqxsim" "${many[@]}" -- \
    "$secapp" -d {} 'program image R1999; verify image R1999'

closed 0 'Verified 16 bytes' '<&-'
closed 255 'Bad file descriptor' '>&-'
closed 0 'ended' '2>&-'
closed 255 'No space left on device' '>/dev/full'
closed 0 'Verified 16 bytes' '2>/dev/full'

expect 'unplugged device' 255 'is gone' "$vqxsim" --fault unplug,at=3 -- \
    "$secapp" -d {} 'queryFlash; queryFlash; queryFlash'

# The first tool keeps its port until its standard input ends.
# shellcheck disable=SC2016
expect 'second host' 255 'Device or resource busy' "$vqxsim" -- bash -c '
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
grep -q 'Held by secapp (process ' output || fail 'second host' 'does not name the holder'

# Settings of the port are found again after an answer "q", help, a failure and a success.
# shellcheck disable=SC2016
expect 'settings of the port' 0 'same same same same' "$vqxsim" -- bash -c '
    before=$(stty -g <"$2")
    same() { [[ $(stty -g <"$2") == "$before" ]] && printf "same " || printf "changed "; }
    echo q | "$1" -d "$2" -p targetInfo >log 2>&1; same "$@"
    "$1" -d "$2" "?" >log 2>&1; same "$@"
    "$1" -d "$2" nonsense >log 2>&1; same "$@"
    "$1" -d "$2" targetInfo >log 2>&1; same "$@"' - "$secapp" {}

wait "$patient" || failures=$((failures + 1))
wait "$alarmed" || failures=$((failures + 1))
((failures == 0))
