#!/usr/bin/env bash
# Usage: documented_long_options.sh VQXSIM MAN_PAGE
# Compares the options, faults and fault settings in the man page with the program's own help.
set -euo pipefail
export LC_ALL=C

program=$1
man_page=$2
failed=

help=$("$program" --help)
options=$(grep -oE '^  --[a-z-]+' <<<"$help" | tr -d ' ' | sort)
# One fault a line: its kind and its settings.
faults=$(sed -nE '/^Faults:/,$s/^  ([a-z]+)( \(([a-z ]+)\))? .*/\1 \3/p' <<<"$help" | sed 's/ *$//' | sort)

options_of_man_page() {
    sed -nE 's/^\.It Fl Fl ([a-z-]+).*/--\1/p' "$man_page"
}

faults_of_man_page() {
    sed -n '/^\.It Cm error/,/^\.El/p' "$man_page" | sed -nE 's/^\.It Cm //p' |
        sed -E 's/^([a-z]+)/\1;/; s/Cm ([a-z]+) Ns = Ns (Cm|Ar)? ?[A-Za-z0-9]+/\1/g; s/ , Ns / /g; s/;//'
}

# compare WHAT EXPECTED FOUND
compare() {
    if [[ -z $2 ]] || ! diff <(echo "$2") <(sort <<<"$3"); then
        echo "$1 ('>') and the program's help ('<') differ" >&2
        failed=yes
    fi
}

compare "the options of $man_page" "$options" "$(options_of_man_page)"
compare "the faults of $man_page" "$faults" "$(faults_of_man_page)"
[[ -z $failed ]]
