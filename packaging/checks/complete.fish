# complete.fish FOLDER WORD...: what fish offers for the last of WORD, one a line.
source $argv[1]/velta-mcp.fish
complete -C (string join ' ' -- $argv[2..]) | string split -f 1 \t
