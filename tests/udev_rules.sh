#!/usr/bin/env bash
# Usage: udev_rules.sh INSTALL_UDEV_RULES MAN_PAGE
# Holds what the script writes, prints, removes and refuses against what it promises, in a folder of its own, and the
# man page's options against the script's.
set -euo pipefail

script=$1
man_page=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
access=$folder/rules.d/60-secapp.rules
modems=$folder/rules.d/61-secapp-no-modem.rules
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

# rules FILE REGULAR_EXPRESSION: how many rules of a file match.
rules() {
    grep -v '^#' "$1" | grep -cE "$2" || true
}

# sound FILE NUMBER: so many rules, and nothing else, which match USB serial ports only; access and modems apart.
sound() {
    local own='MODE="0660"|GROUP="dialout"|TAG\+="uaccess"'
    [[ $1 == "$access" ]] || own='ENV\{ID_MM_DEVICE_IGNORE\}="1", ENV\{ID_MM_PORT_IGNORE\}="1"'
    [[ $(rules "$1" .) -eq $2 &&
        $(rules "$1" "^SUBSYSTEM==\"tty\", SUBSYSTEMS==\"usb\"(, ATTRS\{id(Vendor|Product)\}==\"[0-9a-f]{4}\")*, ($own)\$") -eq $2 ]]
}

"$script" --directory "$folder/rules.d" --vid 1234 >/dev/null
check "a board's own rules" sound "$modems" 1
"$script" --directory "$folder/rules.d" >/dev/null
check "access to every port" sound "$access" 3
check "no identifiers unless asked for" test "$(rules "$access" ATTRS)" -eq 0
check "modem managers are kept off no unknown port" test "$(ls -A "$folder/rules.d")" = 60-secapp.rules
"$script" --directory "$folder/rules.d" --vid 5678 --vid 12AB --pid 00cD >/dev/null
check "access to two boards" sound "$access" 6
check "two boards that are no modems" sound "$modems" 2
check "identifiers in the kernel's lower case" \
    test "$(rules "$access" 'ATTRS\{idVendor\}=="12ab", ATTRS\{idProduct\}=="00cd", ')" -eq 3
check "a vendor alone" test "$(rules "$modems" 'ATTRS\{idVendor\}=="5678", ENV')" -eq 1
check "the dry run prints what would be written" \
    diff <(cat "$access" "$modems") <("$script" --directory "$folder/elsewhere" --vid 5678 --vid 12ab --pid 00cd --dry-run)
check "the dry run writes nothing" test ! -e "$folder/elsewhere"
"$script" --directory "$folder/rules.d" --remove >/dev/null
check "nothing is left behind" test -z "$(ls -A "$folder/rules.d")"
check "removing nothing is no failure" "$script" --directory "$folder/rules.d" --remove

for arguments in "--vid 12a" "--vid 12ag" "--vid 012ab" "--vid" "--pid 1234" "--vid 1234 --pid 12" "--vid 1234 --pid 1234 --pid 1234" "--bogus" "word"; do
    # shellcheck disable=SC2086 # several words are meant
    check "'$arguments' is refused" refuses 2 $arguments
done
if [[ $EUID -eq 0 ]]; then
    chmod 755 "$folder"
    status=0
    message=$(setpriv --reuid=65534 --clear-groups bash -s -- --directory "$folder/rules.d" <"$script" 2>&1) || status=$?
    check "a folder of root's is refused to others" test "$status" -eq 1 -a "${message/as root/}" != "$message"
fi
check "the options of $man_page" diff <("$script" --help | grep -oE -e '^  --[a-z-]+' | tr -d ' ' | sort) \
    <(sed -nE 's/^\.It Fl Fl ([a-z-]+).*/--\1/p' "$man_page" | sort)
[[ -z $failed ]]
