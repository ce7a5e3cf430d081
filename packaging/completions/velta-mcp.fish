# fish completion of velta-mcp(1)

# Whether nothing stands before the word yet.
function __velta_mcp_first
    test (count (commandline -opc)) -eq 1
end

# Whether nothing stands before the word that goes with nothing else.
function __velta_mcp_open
    not __fish_seen_subcommand_from connect status disconnect --version --help
end

complete -c velta-mcp -f
complete -c velta-mcp -n __velta_mcp_first -a connect -d 'Ask for a key for web meetings and save it'
complete -c velta-mcp -n __velta_mcp_first -a status -d 'Say what the key reaches'
complete -c velta-mcp -n __velta_mcp_first -a disconnect -d 'Forget the key and the cache'
complete -c velta-mcp -n __velta_mcp_open -l client -x -d 'Name by which the server knows the client'
complete -c velta-mcp -n __velta_mcp_open -l admin-stats -d 'Offer figures for the owner of the web service'
complete -c velta-mcp -n __velta_mcp_open -l no-reindex -d 'Do not read the meetings at the start'
complete -c velta-mcp -n __velta_mcp_open -l version -d 'Print the version'
complete -c velta-mcp -n __velta_mcp_open -l help -d 'Print a summary of the usage'
