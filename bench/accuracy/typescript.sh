#!/usr/bin/env bash
# The JavaScript/TypeScript rows of the accuracy table: four trees no one
# here wrote, taken from the packages tests/mcp installs from its lock file,
# each indexed by kestrune-index (timed: a full index, then a run with
# nothing changed) and the index scored against the TypeScript language
# service (score_ts.py). A benchmark, not a test. Extra arguments go to the
# scorer (--seed N, --several, --show N).
#   bench/accuracy/typescript.sh [ARGS...]
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

index=build/release/indexer/kestrune-index
for tree in zod ajv hono sdk; do
  /usr/bin/time -f "$tree: full index %e s wall, %U s user, %S s system, peak RSS %M KiB" \
    "$index" "$scratch/$tree" --db "$scratch/$tree.db" >/dev/null
  /usr/bin/time -f "$tree: nothing changed %e s wall, %U s user, %S s system" \
    "$index" "$scratch/$tree" --db "$scratch/$tree.db" >/dev/null
  /usr/bin/python3 bench/accuracy/score_ts.py --tree "$scratch/$tree" --db "$scratch/$tree.db" "$@"
done
