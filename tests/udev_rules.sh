#!/usr/bin/env bash
# Usage: udev_rules.sh INSTALL_UDEV_RULES
# Holds what the script writes, prints, removes and refuses against what it promises, in a folder of its own.
set -euo pipefail

script=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
file=$folder/rules.d/60-secapp.rules
failed=

check() {
    local what=$1
    shift
    if ! "$@"; then
        echo "wrong: $what" >&2
        failed=yes
    fi
}

# refuses STATUS ARGUMENT...: the script ends with STATUS, says why and writes nothing.
refuses() {
    local expected=$1 status=0 message
    shift
    message=$("$script" --directory "$folder/refused" "$@" 2>&1 >/dev/null) || status=$?
    [[ $status -eq $expected && -n $message && ! -e $folder/refused ]]
}

count() {
    grep -cE "$1" "$file" || true
}

# Every rule that acts matches a USB serial port, and nothing else is set in the rules of GROUP and uaccess.
sound() {
    [[ $(grep -cv '^#' "$file") -eq $(count '^SUBSYSTEM=="tty", SUBSYSTEMS=="usb",') &&
        $(count ', GROUP="dialout"$') -eq 1 && $(count ', TAG\+="uaccess"$') -eq 1 &&
        $(count 'GROUP=.*=|uaccess.*=') -eq 0 && $(count 'ID_MM_(DEVICE|PORT)_IGNORE') -eq 1 ]]
}

"$script" --directory "$folder/rules.d" >/dev/null
check "rules for every port" sound
check "no identifiers unless asked for" test "$(count ATTRS)" -eq 0
"$script" --directory "$folder/rules.d" --vid 12AB --pid 00cD >/dev/null
check "rules for one product" sound
check "identifiers in the kernel's lower case in every rule" \
    test "$(count 'ATTRS\{idVendor\}=="12ab", ATTRS\{idProduct\}=="00cd"')" -eq "$(grep -cv '^#' "$file")"
check "the dry run prints what would be written" \
    diff "$file" <("$script" --directory "$folder/elsewhere" --vid 12ab --pid 00cd --dry-run)
check "the dry run writes nothing" test ! -e "$folder/elsewhere"
"$script" --directory "$folder/rules.d" --remove >/dev/null
check "nothing is left behind" test -z "$(ls -A "$folder/rules.d")"
check "removing nothing is no failure" "$script" --directory "$folder/rules.d" --remove

for arguments in "--vid 12a" "--vid 12ag" "--vid 012ab" "--vid" "--pid 1234" "--bogus" "word"; do
    # shellcheck disable=SC2086 # several words are meant
    check "'$arguments' is refused" refuses 2 $arguments
done
if [[ $EUID -eq 0 ]]; then
    chmod 755 "$folder"
    status=0
    message=$(setpriv --reuid=65534 --clear-groups bash -s -- --directory "$folder/rules.d" <"$script" 2>&1) || status=$?
    check "a folder of root's is refused to others" test "$status" -eq 1 -a "${message/as root/}" != "$message"
fi
[[ -z $failed ]]
