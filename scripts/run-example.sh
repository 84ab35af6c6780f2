#!/usr/bin/env bash
# Builds the release tool and answers the shipped example session.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh core
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{ cmake --preset release && cmake --build --preset release -j"$(nproc)" --target mcp-responses; } >"$log" 2>&1 ||
  { cat "$log" >&2; exit 1; }
build/release/tools/mcp-responses examples/session.jsonl
