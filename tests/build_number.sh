#!/usr/bin/env bash
# The build number follows the commits, and its header is written only when it changes.
# Arguments: cmake, and the script that writes the header
set -euo pipefail

cmake=$1 script=$2
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"
command -v git >/dev/null || skip "there is no git"
# A hook of git that runs the tests names its own repository.
unset "${!GIT_@}"

# counts NUMBER: writes the header of source and compares it.
counts() {
    "$cmake" -DSOURCE_DIRECTORY="$directory/source" -DHEADER="$directory/build_number.h" -P "$script"
    expect "the header" "#define SECAPP_BUILD_NUMBER \"$1\"" "$(<build_number.h)"
}

commit() {
    git -C source -c user.name=test -c user.email=test@localhost commit --quiet --allow-empty --message change
}

mkdir source
counts 0
echo 7 >source/.build-number
counts 7
git init --quiet source
counts 0
commit
counts 1
commit
counts 2
touch --date 2000-01-01 build_number.h
counts 2
expect "the year of the unchanged header" 2000 "$(date --reference build_number.h +%Y)"
