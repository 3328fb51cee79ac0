" Vim syntax file
" Language: secapp script
if exists("b:current_syntax")
  finish
endif
let s:saved_options = &cpoptions
set cpoptions&vim

syntax case ignore
syntax iskeyword @,48-57,_

" A line is cut at ";" into commands, each with its own prefix; then comes the command word.
syntax match secappStart /\%(^\|;\)\s*/ nextgroup=secappComment,secappRaw,secappPrefix,secappTool,secappText,secappTarget,secappOther
syntax match secappPrefix /[-!+%?]\s*/ contained nextgroup=secappTool,secappText,secappTarget,secappOther
syntax match secappComment /#[^;]*/ contained contains=secappTodo,@Spell
syntax match secappRaw /@[^;]*/ contained
syntax keyword secappTodo TODO FIXME XXX contained

" Of several matches the last one counts, so the unknown word comes first.
syntax match secappOther /\k\+/ contained
syntax keyword secappTool contained nextgroup=secappNothing
      \ program verify erase blankCheck setBoot setVidPid delay pause timer version targetInfo queryFlash download
syntax match secappTool /\<var[^ \t;=]*/ contained
" What follows these words is text.
syntax match secappText /\<\%(echo\|print\)\>[^;]*/ contained contains=secappTextWord,secappVariable
syntax keyword secappTextWord echo print contained
syntax keyword secappTarget contained
      \ batchmode bootBank databurst dataPacket dataSet DebugOptions dump eraseFlash help helpadvanced otp_ProgUSBID
      \ programPage queryID queryMORVI queryPart readWord verifyPage

syntax match secappVariable /\[[^][;]\+\]/ containedin=secappRaw
syntax match secappOption /\%(\s\)\@1<=+\%(c\|i\|w1\|w2\|w4\)\>/
" By case, so that a memory named BANKB is none of them.
syntax case match
syntax keyword secappConstant all BankA BankB on off start stop
syntax case ignore
syntax match secappNumber /\<0x\x\+\>\|\<\d\+\>/
syntax match secappOperator /[-+*\/]\%([^-+*\/; \t]\)\@=/ contained containedin=secappExpression
syntax match secappExpression /\<[A-Za-z0-9_]\+\%([-+*\/][A-Za-z0-9_]\+\)\+\>\.\@!/ contains=secappNumber,secappOperator

highlight default link secappComment Comment
highlight default link secappTodo Todo
highlight default link secappPrefix PreProc
highlight default link secappRaw Special
highlight default link secappTool Statement
highlight default link secappTextWord Statement
highlight default link secappText String
highlight default link secappTarget Function
highlight default link secappVariable Identifier
highlight default link secappOption Type
highlight default link secappConstant Constant
highlight default link secappNumber Number
highlight default link secappOperator Operator

let b:current_syntax = "secapp"
let &cpoptions = s:saved_options
unlet s:saved_options
