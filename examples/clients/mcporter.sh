npx mcporter call --stdio "/path/to/build/release/velta-mcp --client mcporter" list_meetings limit=5
