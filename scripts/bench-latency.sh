#!/usr/bin/env bash
# Each tool's latency on the standard library (scripts/stdlib-tree.sh), for
# both example servers, through the official MCP client: bench/latency.mjs
# with CALLS calls per tool (default 200) in a realistic mix. A benchmark:
# it is not part of the tests.
#   scripts/bench-latency.sh [CALLS]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
command -v sqlite3 >/dev/null || { echo "bench-latency.sh: needs the sqlite3 shell (Debian: sqlite3)" >&2; exit 1; }
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" \
  --target kestrune-index kestrune-example-server kestrune_mcp_responses_python >/dev/null
tests/mcp/install.sh

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
scripts/stdlib-tree.sh "$scratch/stdlib"
build/release/indexer/kestrune-index "$scratch/stdlib" --db "$scratch/index.db" 2>"$scratch/log"
echo "indexed: $(sqlite3 "$scratch/index.db" "SELECT files_indexed || ' files, ' || symbols_indexed || ' symbols, ' ||
  errors_count || ' errors (' || health || ')' FROM index_status")"
echo
for server in build/release/servers/cpp/kestrune-example-server servers/python/server.py; do
  echo "## $server"
  PYTHONPATH=$PWD/build/release/python node bench/latency.mjs "$server" "$scratch/index.db" "$scratch/stdlib" "${1:-200}"
  echo
done
