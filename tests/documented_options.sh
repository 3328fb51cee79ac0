#!/usr/bin/env bash
# Usage: documented_options.sh SECAPP MAN_PAGE COMPLETION
# Compares the options in the man page and in the bash completion with those that the program itself reads.
set -euo pipefail
export LC_ALL=C

program=$1
man_page=$2
completion=$3
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

# One option per line, "a:" if it takes an argument.
options_of_program() {
    # The string that getopt is given: letters with many colons between them.
    local found
    found=$(grep -aoE '([A-Za-z0-9]:?){10,}' "$program" | grep -E '(:.*){5}' || true)
    if [[ $(wc -l <<<"$found") -ne 1 || -z $found ]]; then
        echo "no option string, or more than one, in $program: '$found'" >&2
        return 1
    fi
    grep -oE '[A-Za-z0-9]:?' <<<"$found"
}

options_of_man_page() {
    sed -nE 's/^\.It Fl ([A-Za-z0-9])$/\1/p; s/^\.It Fl ([A-Za-z0-9]) .*/\1:/p' "$man_page"
}

complete_words() {
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _secapp
}

# An option takes an argument if no option is offered after it.
options_of_completion() {
    # shellcheck source=completion/secapp
    source "$completion"
    local option offered
    complete_words secapp -
    offered=("${COMPREPLY[@]}")
    for option in "${offered[@]}"; do
        complete_words secapp "$option" -
        if [[ " ${COMPREPLY[*]} " == *" -h "* ]]; then
            echo "${option#-}"
        else
            echo "${option#-}:"
        fi
    done
}

expected=$(options_of_program | sort)

check "the options of $man_page (>)" diff <(echo "$expected") <(options_of_man_page | sort)
check "the options of $completion (>)" diff <(echo "$expected") <(sort <<<"$(options_of_completion)")
