npx @modelcontextprotocol/inspector --cli -e MEETING_NOTES_HOME=/path/to/home /path/to/build/release/velta-mcp --client inspector --method tools/call --tool-name list_meetings --tool-arg limit=5
