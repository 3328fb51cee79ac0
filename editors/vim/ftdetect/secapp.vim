autocmd BufNewFile,BufRead *.secapp setfiletype secapp
" A script of another name is known by its first line: "# secapp", or #! with secapp.
autocmd BufRead * if getline(1) =~# '^#\( secapp\s*$\|!.*\<secapp\>\)' | set filetype=secapp | endif
