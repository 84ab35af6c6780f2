#!/usr/bin/env bash
# Builds the example MCP server and its SQLite index of examples/repo/, then
# runs a short session of the official MCP client against it: each call and
# the text the model reads.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh core
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{ cmake --preset release && cmake --build --preset release -j"$(nproc)" --target kestrune-example-server &&
  tests/mcp/install.sh; } >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
server=build/release/examples/mcp-server
node tests/mcp/session.mjs "$server/kestrune-example-server" "$server/index.db" examples/repo
