#!/usr/bin/env bash
# Builds the release tool and answers the shipped example session.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh core
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target mcp-responses >/dev/null
build/release/tools/mcp-responses examples/session.jsonl
