" Vim compiler file
" Compiler: secapp-lint, which warns of slips in secapp scripts
if exists("current_compiler")
  finish
endif
let current_compiler = "secapp-lint"
CompilerSet makeprg=secapp-lint\ %:S
CompilerSet errorformat=%f:%l:\ %tarning:\ %m
