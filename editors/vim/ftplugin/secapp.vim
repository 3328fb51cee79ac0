if exists("b:did_ftplugin")
  finish
endif
let b:did_ftplugin = 1
setlocal commentstring=#\ %s comments=:#
compiler secapp-lint
let b:undo_ftplugin = "setlocal commentstring< comments< makeprg< errorformat< | unlet! b:current_compiler"
