codex mcp add velta -- /path/to/build/release/velta-mcp --client codex
