#!/usr/bin/env bash
# Usage: documented_long_options.sh VQXSIM MAN_PAGE
# Compares the options, faults and fault settings in the man page with the program's own help.
set -euo pipefail
export LC_ALL=C

program=$1
man_page=$2
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

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

check "too few options or faults in the help" test "$(wc -l <<<"$options")" -gt 10 -a "$(wc -l <<<"$faults")" -gt 10
check "the options of $man_page (>)" diff <(echo "$options") <(options_of_man_page | sort)
check "the faults of $man_page (>)" diff <(echo "$faults") <(faults_of_man_page | sort)
