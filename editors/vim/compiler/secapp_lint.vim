" Vim compiler file
" Compiler: secapp_lint, which warns of slips in secapp scripts
if exists("current_compiler")
  finish
endif
let current_compiler = "secapp_lint"
CompilerSet makeprg=secapp_lint\ %:S
CompilerSet errorformat=%f:%l:\ %tarning:\ %m
