#!/usr/bin/env bash
# Usage: completion.sh COMPLETIONS PROGRAMS SCRIPTS
# Checks the words that the Tab key offers. The completion of secapp is called as bash calls it, with words split at =
# and :, and without -e, which no interactive shell has. In zsh the keys are typed. Status 77 without zsh.
set -uo pipefail
export LC_ALL=C

# shellcheck source=completion/secapp
source "$1/secapp"
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"
mkdir -p dev/serial/by-id dev/serial/by-path images
touch firmware.bin images/a images/b dev/ttyACM0 dev/ttyUSB7 dev/tty1 \
    dev/serial/by-id/usb-Board_01-if00 dev/serial/by-path/pci-0000:00:14.0-usb-0:1:1.0
expect 'the devices of a computer' \
    'dev/serial/by-id/usb-Board_01-if00 dev/serial/by-path/pci-0000:00:14.0-usb-0:1:1.0 dev/ttyACM0 dev/ttyUSB7' \
    "$(_secapp_devices dev | xargs)"

# What is typed after secapp and its space, and what is offered there
while IFS='|' read -r line offered; do
    # shellcheck disable=SC2001 # the shell cannot insert what matched
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
# The commands that the help of secapp lists, and those that it does not
known=$("$2/vqxsim" -- "$2/secapp" -d {} -H | sed -nE '/^Supported high-level/,/^Target/s/^    ([A-Za-z]+)[^A-Za-z].*/\1/p')
COMP_WORDS=(secapp '') COMP_CWORD=1 COMPREPLY=()
_secapp
expect 'the commands of secapp' "$(sort -u <<<"$known"$'\ntargetInfo\nqueryFlash\ndownload\nversion\nprint')" \
    "$(printf '%s\n' "${COMPREPLY[@]}" | sort)"

command -v zsh >/dev/null || skip "there is no zsh"

# The files where the package has them
mkdir -p share/zsh/vendor-completions share/bash-completion/completions
cp "$1/zsh/_secapp" share/zsh/vendor-completions/
find "$1" -maxdepth 1 -type f -exec cp {} share/bash-completion/completions/ \;
# What is typed before Tab, and the line then
cat >typed <<'CASES'
secapp er|secapp erase
secapp -s fi|secapp -s firmware.bin
secapp -v image=fi|secapp -v image=firmware.bin
secapp -v image=im|secapp -v image=images/
secapp-lint fi|secapp-lint firmware.bin
secapp-read --sec|secapp-read --secapp
secapp-boards --retry|secapp-boards --retry-failed
vqxsim --mem|vqxsim --memory
vqxsim --memory im|vqxsim --memory images/
vqxsim --memory images -- secapp setB|vqxsim --memory images -- secapp setBoot
CASES
cat >session <<'ZSH'
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PS1= fpath=($PWD/share/zsh/vendor-completions \$fpath)
autoload -Uz compinit && compinit -D -u
record() { print -r -- \$BUFFER >>lines; BUFFER= }
zle -N record; bindkey ^X record"
number=0
while IFS='|' read -r keys line; do
    zpty -w -n shell "$keys"$'\t\030'
    ((number += 1))
    until [[ -e lines && $(wc -l <lines) -ge $number ]]; do sleep 0.05; done
done <typed
zpty -d shell
ZSH
PATH=$2:$3:$PATH timeout 60 zsh -f session >output 2>&1 || fail 'zsh does not offer everything'
expect 'in zsh' "$(cut -d '|' -f 2 typed)" "$(sed 's/ *$//' lines)"
