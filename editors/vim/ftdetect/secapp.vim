autocmd BufNewFile,BufRead *.secapp setfiletype secapp
