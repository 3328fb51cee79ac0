#!/usr/bin/env bash
# Usage: editors.sh EDITORS WORDS
# Checks how vim highlights scripts, its list of the warnings of secapp-lint, nano's colours of every command word, and which
# files are taken for scripts. Status 77 if there is no vim with syntax highlighting.
set -euo pipefail
export LC_ALL=C

editors=$1
words=$2
# shellcheck source=tests/lib.sh
source "$(dirname "$0")/lib.sh"

# The rules of command words
sed -nE 's/^icolor (brightblue|cyan|yellow) "(.*)"$/\2/p' "$editors/nano/secapp.nanorc" >nano
while read -r word; do
    grep -qixEf nano <<<"$word" || fail "nano does not know $word"
done <"$words"

# Scripts and other files, by their first lines
cat >first-lines <<'LINES'
# secapp|secapp
#!/usr/bin/env -S secapp -d /dev/ttyACM0 -s|secapp
#!/usr/bin/secapp -s|secapp
# secapp completion|
#!/bin/sh|
secapp|
LINES
header=$(sed -nE 's/^header "(.*)"$/\1/p' "$editors/nano/secapp.nanorc")
number=0
while IFS='|' read -r line type; do
    number=$((number + 1))
    echo "$line" >"line-$number.txt"
    expect "nano: $line" "$type" "$(! grep -qE "$header" <<<"$line" || echo secapp)"
done <first-lines

vim --version 2>/dev/null | grep -q '+syntax' || skip "there is no vim with syntax highlighting"

# A line, a part of it, and the group of the part's first character
cat >table <<'TABLE'
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
sed -E 's/.*/& 1|&|(Tool|TextWord|Target)/' "$words" >>table

cut -d '|' -f 1 table >test.secapp

cat >groups.vim <<'SCRIPT'
set nocompatible
let &runtimepath = $EDITORS . '/vim,' . &runtimepath
filetype plugin on
syntax on
edit test.secapp
let groups = []
for row in readfile('table')
  let [line, part; _] = split(row, '|', 1)
  call add(groups, synIDattr(synID(len(groups) + 1, stridx(line, part) + 1, 1), 'name'))
endfor
call writefile(groups, 'groups')
silent make
call writefile(map(getqflist(), {_, entry -> entry.lnum . ' ' . entry.type . ' ' . entry.text}), 'warnings')
let types = []
for number in range(1, len(readfile('first-lines')))
  execute 'edit line-' . number . '.txt'
  call add(types, &filetype ==# 'secapp' ? 'secapp' : '')
endfor
call writefile(types, 'types')
qall!
SCRIPT
cat >secapp-lint <<'CHECKER'
#!/bin/sh
echo "$1:1: warning: a mistake: all of it"
echo "$1:2: error: no file: fw.bin"
exit 1
CHECKER
chmod +x secapp-lint
EDITORS=$editors PATH=$directory:$PATH timeout 30 vim --not-a-term -T dumb -u NONE -S groups.vim </dev/null >output 2>&1 ||
    fail "vim ends with status $?"
rm -f output
expect "rows that vim has shown" "$(wc -l <table)" "$(wc -l <groups)"

while IFS='|' read -r -u 3 line part expected && read -r -u 4 group; do
    [[ $group =~ ^${expected:+secapp}$expected$ ]] || fail "vim shows '$part' of '$line' as '$group', not '$expected'"
done 3<table 4<groups
[[ $(cat warnings) == $'1 w a mistake: all of it\n2 e no file: fw.bin' ]] ||
    fail "vim's list of warnings: $(cat warnings)"
expect "file types in vim" "$(cut -d '|' -f 2 first-lines)" "$(cat types)"
