#!/usr/bin/env bash
# Usage: editors.sh EDITORS WORDS
# What the editors make of scripts: the groups that vim shows and its list of the checker's warnings, and nano's colours of
# every command word. Status 77 when the vim part could not run.
set -euo pipefail
export LC_ALL=C

editors=$1
words=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=

fail() {
    printf '%s\n' "$@" >&2
    failed=yes
}

# The rules of command words
sed -nE 's/^icolor (brightblue|cyan|yellow) "(.*)"$/\2/p' "$editors/nano/secapp.nanorc" >"$folder/nano"
while read -r word; do
    grep -qixEf "$folder/nano" <<<"$word" || fail "nano does not know $word"
done <"$words"

vim --version 2>/dev/null | grep -q '+syntax' || {
    echo "skipped: there is no vim with syntax highlighting"
    [[ -n $failed ]] || exit 77
    exit 1
}

# A line, a part of it, and the group of the part's first character
cat >"$folder/table" <<'TABLE'
var where=FLASH|var|Tool
echo erase 12 all|echo|TextWord
echo erase 12 all|erase|Text
echo erase 12 all|12|Text
echo hello; erase all|erase|Tool
print [name] 12|print|TextWord
print [name] 12|[name]|Variable
?erase all|?|Prefix
?erase all|erase|Tool
erase all|all|Constant
program +c [image] BANKB|+c|Option
program +c [image] BANKB|[image]|Variable
program +c [image] BANKB|BANKB|
program 0x5A FLASH+0x100 16|0x5A|Number
program 0x5A FLASH+0x100 16|+0x|Operator
- readWord FLASH|readWord|Target
bogus 12|bogus|Other
bogus 12|12|Number
erase all; bogus|bogus|Other
@=print x|print|Raw
# erase all|erase|Comment
echo x; # erase|erase|Comment
TABLE
sed -E 's/.*/& 1|&|(Tool|TextWord|Target)/' "$words" >>"$folder/table"

cut -d '|' -f 1 "$folder/table" >"$folder/test.secapp"

cat >"$folder/groups.vim" <<'SCRIPT'
set nocompatible
let &runtimepath = $EDITORS . '/vim,' . &runtimepath
filetype plugin on
syntax on
edit test.secapp
let groups = []
for row in readfile('table')
  let [line, part, expected] = split(row, '|', 1)
  call add(groups, synIDattr(synID(len(groups) + 1, stridx(line, part) + 1, 1), 'name'))
endfor
call writefile(groups, 'groups')
silent make
call writefile(map(getqflist(), {_, entry -> entry.lnum . ' ' . entry.type . ' ' . entry.text}), 'warnings')
qall!
SCRIPT
cat >"$folder/secapp-lint" <<'CHECKER'
#!/bin/sh
echo "$1:1: warning: a slip: all of it"
echo "$1:2: error: no file: fw.bin"
exit 1
CHECKER
chmod +x "$folder/secapp-lint"
(cd "$folder" && EDITORS=$editors PATH=$folder:$PATH timeout 30 vim --not-a-term -T dumb -u NONE -S groups.vim </dev/null >vim.log 2>&1) ||
    fail "vim ends with status $?" "$(cat "$folder/vim.log")"

while IFS='|' read -r -u 3 line part expected && read -r -u 4 group; do
    [[ $group =~ ^${expected:+secapp}$expected$ ]] || fail "vim shows '$part' of '$line' as '$group', not '$expected'"
done 3<"$folder/table" 4<"$folder/groups"
[[ $(cat "$folder/warnings") == $'1 w a slip: all of it\n2 e no file: fw.bin' ]] ||
    fail "vim's list of warnings: $(cat "$folder/warnings")"
[[ -z $failed ]]
