claude mcp add -s user velta -- /path/to/build/release/velta-mcp --client claude-code
