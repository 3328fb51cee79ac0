#!/usr/bin/env bash
# The build number follows the commits, and its header is written only when it changes.
# Arguments: cmake, and the script that writes the header
set -euo pipefail

cmake=$1 script=$2
command -v git >/dev/null || {
    echo 'no git'
    exit 77
}
# A hook of git that runs the tests names its own repository.
unset "${!GIT_@}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# expect NUMBER: writes the header of $work/source and compares it.
expect() {
    "$cmake" -DSOURCE_DIRECTORY="$work/source" -DHEADER="$work/build_number.h" -P "$script"
    [[ $(<"$work/build_number.h") == "#define SECAPP_BUILD_NUMBER \"$1\"" ]] || {
        echo "not $1: $(<"$work/build_number.h")"
        exit 1
    }
}

commit() {
    git -C "$work/source" -c user.name=test -c user.email=test@localhost commit --quiet --allow-empty --message change
}

mkdir "$work/source"
expect 0
echo 7 >"$work/source/.build-number"
expect 7
git init --quiet "$work/source"
expect 0
commit
expect 1
commit
expect 2
touch --date 2000-01-01 "$work/build_number.h"
expect 2
[[ $(date --reference "$work/build_number.h" +%Y) == 2000 ]] || {
    echo 'written although nothing has changed'
    exit 1
}
