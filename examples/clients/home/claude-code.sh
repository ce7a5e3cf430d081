claude mcp add -s user velta -e MEETING_NOTES_HOME=/path/to/home -- /path/to/build/release/velta-mcp --client claude-code
