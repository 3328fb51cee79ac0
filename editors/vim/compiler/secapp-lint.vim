" Vim compiler file
" Compiler: secapp-lint, which checks secapp scripts
if exists("current_compiler")
  finish
endif
let current_compiler = "secapp-lint"
CompilerSet makeprg=secapp-lint\ %:S
CompilerSet errorformat=%f:%l:\ %trror:\ %m,%f:%l:\ %tarning:\ %m
