# shellcheck shell=bash
# Functions that the tests in bash share. Sourced, not run: it changes to a temporary directory, which is removed at the
# end, and makes the test fail at its end if a check failed.

failures=0
directory=$(mktemp -d)
cd "$directory" || exit

# fail TEXT...: reports a failed check with the file output, if there is one. The test goes on.
fail() {
    printf '%s\n' "$@" >&2
    [[ ! -e output ]] || sed 's/^/    /' output >&2
    failures=$((failures + 1))
}

# check WHAT COMMAND...: the command must succeed.
check() {
    local what=$1
    shift
    "$@" || fail "wrong: $what"
}

# expect WHAT EXPECTED FOUND: both texts must be the same.
expect() {
    [[ $2 == "$3" ]] || fail "$1: '$3' instead of '$2'"
}

# skip WHY: ends the test; CTest counts it as skipped unless a check failed.
skip() {
    echo "skipped: $1"
    ((failures > 0)) || exit 77
    exit 1
}

# Commands that the test runs when it ends.
at_exit=:

finish() {
    local status=$?
    eval "$at_exit"
    rm -rf "$directory"
    ((status != 0 || failures == 0)) || status=1
    exit "$status"
}
trap finish EXIT
