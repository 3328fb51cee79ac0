#!/usr/bin/env bash
# Many simulated boards at once, some of which fail, hang or are pulled: every one has its row, and a second run of these
# alone makes all good. Usage: flash_boards.sh PROGRAMS FLASH_BOARDS
set -euo pipefail
programs=$1 flash_boards=$2
export PATH=$programs:$PATH
folder=$(mktemp -d)
boards=()
trap 'kill "${boards[@]}" 2>/dev/null; rm -rf "$folder"' EXIT
cd "$folder"

# board NAME OPTION...: a simulated board as the device NAME.
board() {
    mkdir "memory-$1"
    vqxsim --link "$1" --memory "memory-$1" "${@:2}" >/dev/null &
    boards+=($!)
    until [[ -e $1 ]]; do
        kill -0 $!
        sleep 0.02
    done
}

# expect WHAT COMMAND...
expect() {
    "${@:2}" || {
        echo "$1; what was printed:" >&2
        cat output >&2
        exit 1
    }
}

# run STATUS OPTION...
run() {
    local wanted=$1 status=0
    shift
    timeout 60 "$flash_boards" "$@" >output 2>errors || status=$?
    expect "status $status instead of $wanted" test "$status" -eq "$wanted"
}

# row BOARD RESULT BYTES ERROR: the JSON line of a board; the error is a regular expression.
row() {
    expect "no row $*" grep -qE "^\{\"board\":\"$1\",\"result\":\"$2\",\"seconds\":[0-9.]+,\"bytes\":$3,\"error\":\"$4\"\}\$" output
}

head -c 100000 /dev/urandom >image
echo 'echo serial [serial]; program [image] MORVI; verify [image] MORVI' >script
{
    echo device,serial
    for name in good1 good2 'good 3' failing hanging pulled; do
        echo "\"$name\",\"S-$name, made today\""
    done
} >boards.csv
board good1
board good2
board 'good 3'
board failing --fault 'error,text=a "worn" cell,command=programPage,count=1'
board hanging --fault hang,s=6,command=burst,count=1
board pulled --fault unplug,byte=50000,replug=1

run 1 script --boards boards.csv --image "$folder/image" --timeout 2 --logs logs --json
for name in good1 good2 'good 3'; do
    row "$name" good 100000 ''
done
row failing failed 0 'a \\"worn\\" cell'
row hanging timeout 0 'no end within the time-out'
row pulled failed 0 '.+'
expect 'a row too many' test "$(wc -l <output)" -eq 6
grep -q 'Device pulled is gone' logs/6-pulled.log
grep -q 'serial S-good 3, made today' 'logs/3-good 3.log'

until [[ -e pulled ]]; do sleep 0.02; done
sleep 4 # the hanging one comes to itself 6 s after it was asked
run 0 --retry-failed --logs logs --csv
expect 'six good boards in the CSV' test "$(grep -cE '^"[a-z0-9 ]+",good,[0-9.]+,100000,""$' output)" -eq 6
for name in good1 good2 'good 3' failing hanging pulled; do
    expect "$name does not hold the image" cmp -n 100000 image "memory-$name/MORVI.bin"
done

# Interrupted: the status says so, and the table still comes.
board endless --fault hang,s=100,at=4
"$flash_boards" script -v serial=1 --image image --logs interrupted good1 endless >output 2>&1 &
flasher=$!
until grep -qs Verified interrupted/1-good1.log; do sleep 0.05; done
kill -INT "$flasher"
status=0
wait "$flasher" || status=$?
expect "status $status after an interrupt" test "$status" -ne 0
expect 'the good one in the table' grep -qE '^good1 +good ' output
expect 'one of two good' grep -q '^1 of 2 boards are good' output
echo "All rows are right"
