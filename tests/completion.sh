#!/usr/bin/env bash
# Usage: completion.sh COMPLETIONS
# What the tabulator key offers, asked as bash asks: with the words that it cuts at = and :.
# Not -e, which no interactive shell has: what offers nothing fails.
set -uo pipefail
export LC_ALL=C

# shellcheck source=completion/secapp
source "$1/secapp"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit
mkdir -p dev/serial/by-id dev/serial/by-path images
touch firmware.bin images/a images/b dev/ttyACM0 dev/ttyUSB7 dev/tty1 \
    dev/serial/by-id/usb-Board_01-if00 dev/serial/by-path/pci-0000:00:14.0-usb-0:1:1.0
failed=

# expect WHAT EXPECTED FOUND
expect() {
    if [[ $2 != "$3" ]]; then
        printf "%s: '%s' is offered instead of '%s'\n" "$1" "$3" "$2" >&2
        failed=yes
    fi
}

expect 'the devices of a machine' \
    'dev/serial/by-id/usb-Board_01-if00 dev/serial/by-path/pci-0000:00:14.0-usb-0:1:1.0 dev/ttyACM0 dev/ttyUSB7' \
    "$(_secapp_devices dev | xargs)"

# A line behind secapp and its space, the cursor at the end, and what is offered there
while IFS='|' read -r line offered; do
    # shellcheck disable=SC2001 # the shell has no such replacement
    read -r -a COMP_WORDS <<<"secapp $(sed 's/[=:]/ & /g' <<<"$line")"
    [[ $line != *' ' && -n $line ]] || COMP_WORDS+=('')
    # shellcheck disable=SC2034 # read by the completion
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _secapp_devices() { printf '%s\n' /dev/serial/by-path/pci-0000:00:14.0-usb-0:{1:1,2:1}.0 /dev/ttyACM0; }
    COMPREPLY=()
    _secapp
    expect "secapp $line" "$(xargs -n 1 <<<"$offered" | sort)" "$(printf '%s\n' "${COMPREPLY[@]}" | sort)"
done <<'CASES'
er|erase
-z er|erase
erase |
erase a|all
blankCheck |
setBoot Bank|BankA BankB
-d |/dev/serial/by-path/pci-0000:00:14.0-usb-0:1:1.0 /dev/serial/by-path/pci-0000:00:14.0-usb-0:2:1.0 /dev/ttyACM0
-d /dev/t|/dev/ttyACM0
-d /dev/serial/by-path/pci-0000:|00:14.0-usb-0:1:1.0 00:14.0-usb-0:2:1.0
-d /dev/serial/by-path/pci-0000:00:14.0-usb-0:2|2:1.0
-d /dev/serial/by-path/pci-0000:00:14.0-usb-0:2:1.0 -s fi|firmware.bin
-d /dev/serial/by-path/pci-0000:00:14.0-usb-0:2:1.0 setB|setBoot
-v ima|
-v image=|dev firmware.bin images
-v image=fi|firmware.bin
-v image=images/|images/a images/b
-v image=firmware.bin ver|verify version
-s firmware.bin |
-e tx|txq txd txn txs txb txe txr txp tx0 tx1 tx2 txN txA txB txS txE
program fi|firmware.bin
program firmware.bin a|all
CASES
[[ -z $failed ]]
