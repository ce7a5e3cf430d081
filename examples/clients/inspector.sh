npx @modelcontextprotocol/inspector --cli /path/to/build/release/velta-mcp --client inspector --method tools/list
