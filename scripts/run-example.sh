#!/usr/bin/env bash
# Builds the example MCP server and kestrune-index, indexes a repository's
# work tree (default: the shipped example, examples/repo), then runs a short
# session of the official MCP client against it: each call and the text the
# model reads. With a repository, it ends with the configuration that an MCP
# client reads to use the server on that repository. With --python the
# session runs against the example server written in Python
# (servers/python) instead, over the Python module; it answers alike.
#   scripts/run-example.sh [--python] [REPO]
set -euo pipefail
cd "$(dirname "$0")/.."
python=
if [ "${1:-}" = --python ]; then
  python=--python
  shift
fi
repo=${1:-examples/repo}
[ -d "$repo" ] || { echo "run-example.sh: $repo is not a folder" >&2; exit 2; }
repo=$(cd "$repo" && pwd)
scripts/install-deps.sh core
log=$(mktemp)
trap 'rm -f "$log"' EXIT
targets=(kestrune-index kestrune-example-server)
[ -n "$python" ] && targets=(kestrune-index kestrune_mcp_responses_python)
{ cmake --preset release && cmake --build --preset release -j"$(nproc)" --target "${targets[@]}" &&
  tests/mcp/install.sh; } >"$log" 2>&1 || { cat "$log" >&2; exit 1; }

# One index per repository, kept between runs: a second run reads only the
# files that changed.
mkdir -p build/release/indexes
db=$PWD/build/release/indexes/$(basename "$repo")-$(printf %s "$repo" | cksum | cut -d' ' -f1).db
server=$PWD/build/release/servers/cpp/kestrune-example-server
env_json=
if [ -n "$python" ]; then
  # The client passes PYTHONPATH on to the server (tests/mcp/client.mjs).
  export PYTHONPATH=$PWD/build/release/python
  server=$PWD/servers/python/server.py
  env_json=", \"env\": {\"PYTHONPATH\": \"$PYTHONPATH\"}"
fi
build/release/indexer/kestrune-index "$repo" --db "$db" >&2
if [ $# -eq 0 ]; then
  node tests/mcp/session.mjs "$server" "$db" "$repo"
else
  node tests/mcp/session.mjs "$server" "$db" "$repo" --explore
  cat <<JSON

To use it from an MCP client, add the server to the client's configuration:
{"mcpServers": {"kestrune": {"command": "$server", "args": ["--db", "$db", "--root", "$repo"]$env_json}}}
Run scripts/run-example.sh ${python:+$python }$1 again (or build/release/indexer/kestrune-index) to bring the index up to date.
JSON
fi
