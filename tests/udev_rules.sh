#!/usr/bin/env bash
# Usage: udev_rules.sh INSTALL_UDEV_RULES MAN_PAGE POSTRM
# Checks what the script writes, prints, removes and refuses, in a temporary directory, the options in the man page, and
# that the package's script finds the same files.
set -euo pipefail

script=$1
man_page=$2
postrm=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"
rules=$directory/rules.d
access=$rules/60-secapp.rules
boards=$rules/60-secapp-boards.rules
modems=$rules/61-secapp-no-modem.rules

# refuses STATUS ARGUMENT...: the script ends with STATUS, says why and writes nothing.
refuses() {
    local expected=$1 status=0 message
    shift
    message=$("$script" --directory "$directory/refused" "$@" 2>&1 >/dev/null) || status=$?
    [[ $status -eq $expected && -n $message && ! -e $directory/refused ]]
}

# count FILE REGULAR_EXPRESSION: how many rules of a file match.
count() {
    grep -v '^#' "$1" | grep -cE "$2" || true
}

# sound FILE NUMBER: this number of rules, and no other lines, which match USB serial ports only; access and modems apart
sound() {
    local own='MODE="0660"|GROUP="dialout"|TAG\+="uaccess"'
    [[ $1 != "$modems" ]] || own='ENV\{ID_MM_DEVICE_IGNORE\}="1", ENV\{ID_MM_PORT_IGNORE\}="1"'
    [[ $(count "$1" .) -eq $2 &&
        $(count "$1" "^SUBSYSTEM==\"tty\", SUBSYSTEMS==\"usb\"(, ATTRS\{id(Vendor|Product)\}==\"[0-9a-f]{4}\")*, ($own)\$") -eq $2 ]]
}

"$script" --directory "$rules" >/dev/null
check "access to every port" sound "$access" 3
check "no identifiers unless asked for" test "$(count "$access" ATTRS)" -eq 0
expect "modem managers may use an unknown port" 60-secapp.rules "$(ls -A "$rules")"
"$script" --directory "$rules" --vid 5678 --vid 12AB --pid 00cD >/dev/null
check "the rules for all ports stay" sound "$access" 3
check "access to two boards" sound "$boards" 6
check "two boards that are not modems" sound "$modems" 2
check "identifiers in the kernel's lower case" \
    test "$(count "$boards" 'ATTRS\{idVendor\}=="12ab", ATTRS\{idProduct\}=="00cd", ')" -eq 3
check "a vendor alone" test "$(count "$modems" 'ATTRS\{idVendor\}=="5678", ENV')" -eq 1
check "the dry run prints what would be written" \
    diff <(cat "$boards" "$modems") <("$script" --directory "$directory/elsewhere" --vid 5678 --vid 12ab --pid 00cd --dry-run)
check "the dry run writes nothing" test ! -e "$directory/elsewhere"

sed "s|/etc/udev/rules.d|$rules|" "$postrm" >removal
expect "the removed package names the rules" "$(find "$rules" -type f | sort)" "$(sh removal remove | grep -o "$rules/[^,]*" | sort)"
cp -r "$rules" kept
sh removal purge
expect "the purged package leaves no rules" '' "$(ls -A "$rules")"
cp -r kept/. "$rules"

mkdir other
ln -sfT "$directory/other" "$access"
"$script" --directory "$rules" >/dev/null
check "a link to a directory is replaced" test -f "$access" -a ! -L "$access"
ln -sf missing "$access"
"$script" --directory "$rules" --remove >/dev/null
expect "all rules are removed" '' "$(find "$rules" other -name '*.rules')"
check "removing nothing is not a failure" "$script" --directory "$rules" --remove >output
echo 'MODE="0666"' >"$modems"
for arguments in --remove "--vid 1234"; do
    # shellcheck disable=SC2086 # several words are meant
    "$script" --directory "$rules" $arguments >output 2>&1 && fail "'$arguments' accepts rules of others"
    expect "the rules of others after $arguments" "61-secapp-no-modem.rules" "$(ls -A "$rules")"
done

for arguments in "--vid 12a" "--vid 12ag" "--vid 012ab" "--vid" "--pid 1234" "--vid 1234 --pid 12" "--vid 1234 --pid 1234 --pid 1234" "--bogus" "word"; do
    # shellcheck disable=SC2086 # several words are meant
    check "'$arguments' is refused" refuses 2 $arguments
done
if [[ $EUID -eq 0 ]]; then
    chmod 755 "$directory"
    status=0
    message=$(setpriv --reuid=65534 --clear-groups bash -s -- --directory "$rules" <"$script" 2>&1) || status=$?
    check "root's directory is refused to others" test "$status" -eq 1 -a "${message/as root/}" != "$message"
fi
check "the options of $man_page" diff <("$script" --help | grep -oE -e '^  --[a-z-]+' | tr -d ' ' | sort) \
    <(sed -nE 's/^\.It Fl Fl ([a-z-]+).*/--\1/p' "$man_page" | sort)
