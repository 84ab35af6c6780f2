"""The example MCP server's parts: request lines read as JSON (request_json),
JSON-RPC dispatch (protocol), the tools (tools, tool_args) and the index they
answer from (index_db)."""
