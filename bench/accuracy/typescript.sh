#!/usr/bin/env bash
# The JavaScript/TypeScript rows of the accuracy table: four trees no one
# here wrote, taken from the packages tests/mcp installs from its lock file,
# each indexed by kestrune-index (timed) and its references scored against
# the TypeScript language service (score_ts.mjs). A benchmark, not a test.
#   bench/accuracy/typescript.sh [SEED]   (default 1)
set -euo pipefail
cd "$(dirname "$0")/../.."
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target kestrune-index >/dev/null  # installs the analyzer beside it
tests/mcp/install.sh
(cd bench/accuracy && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
m=tests/mcp/node_modules
cp -r "$m/zod/src" "$scratch/zod"                            # TypeScript sources and tests
cp -r "$m/ajv/lib" "$scratch/ajv"                            # TypeScript sources
mkdir "$scratch/hono"                                        # ES module JavaScript and declarations
(cd "$m/hono/dist" && tar cf - --exclude=./cjs .) | tar xf - -C "$scratch/hono"
cp -r "$m/@modelcontextprotocol/sdk/dist/esm" "$scratch/sdk"  # JavaScript beside its declarations

for tree in zod ajv hono sdk; do
  /usr/bin/time -f "$tree: kestrune-index %e s, peak RSS %M KiB" \
    build/release/examples/indexer/kestrune-index "$scratch/$tree" --db "$scratch/$tree.db" >/dev/null
  node bench/accuracy/score_ts.mjs --tree "$scratch/$tree" --seed "${1:-1}" \
    --analyzer build/release/examples/indexer/typescript_analyzer/analyzer.mjs
done
