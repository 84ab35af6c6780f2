#!/usr/bin/env bash
# Both example servers reading the index while kestrune-index writes it: a
# generated tree of 20,000 Python modules, a `--full` run and a run after
# 400 modules changed, each with servers polling search and references
# (bench/concurrent_reads.mjs). Prints torn pages and missing references per
# thousand calls. A benchmark: it is not part of the tests.
#   scripts/bench-concurrent.sh [--servers N] [--files N] [--edited N]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target kestrune-index kestrune-example-server kestrune_mcp_responses_python \
  >/dev/null
PYTHONPATH="$PWD/build/release/python" exec node bench/concurrent_reads.mjs \
  build/release/indexer/kestrune-index build/release/servers/cpp/kestrune-example-server \
  "$PWD/servers/python/server.py" "$@"
