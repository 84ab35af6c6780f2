#!/usr/bin/env bash
# The Python rows of the accuracy table: copies three trees no one here wrote
# to a scratch folder (the standard library of the python3 on PATH, less
# site-packages, dist-packages and __pycache__; Debian's pytest; Debian's
# Pygments), runs the Python analyzer over each as the indexer would, then
# the driver with jedi as the oracle. Extra arguments go to the driver.
#   bench/accuracy/python.sh [--disagreements ...]
# SCRATCH (default: $TMPDIR/kestrune-accuracy) keeps the trees, the analyzer's
# answers and jedi's cached answers between runs.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
"$here/../../scripts/install-deps.sh"
scratch="${SCRATCH:-${TMPDIR:-/tmp}/kestrune-accuracy}"
mkdir -p "$scratch"

copy() {  # copy NAME SOURCE... : the sources side by side in $scratch/NAME
  local tree="$scratch/$1"
  shift
  [ -d "$tree" ] && return
  mkdir -p "$tree.tmp"
  cp -r "$@" "$tree.tmp/"
  find "$tree.tmp" -name __pycache__ -prune -exec rm -rf {} +
  mv "$tree.tmp" "$tree"
}

stdlib="$(python3 -c 'import sysconfig; print(sysconfig.get_path("stdlib"))')"
if [ ! -d "$scratch/stdlib" ]; then
  cp -r "$stdlib" "$scratch/stdlib.tmp"
  rm -rf "$scratch/stdlib.tmp/site-packages" "$scratch/stdlib.tmp/dist-packages"
  find "$scratch/stdlib.tmp" -name __pycache__ -prune -exec rm -rf {} +
  mv "$scratch/stdlib.tmp" "$scratch/stdlib"
fi
copy pytest /usr/lib/python3/dist-packages/_pytest /usr/lib/python3/dist-packages/pytest
copy pygments /usr/lib/python3/dist-packages/pygments

for tree in stdlib pytest pygments; do
  echo "== $tree"
  python3 "$here/run_analyzer.py" --tree "$scratch/$tree" --out "$scratch/$tree.jsonl"
  /usr/bin/python3 "$here/accuracy.py" --language python --tree "$scratch/$tree" \
    --analyzer-output "$scratch/$tree.jsonl" --cache "$scratch/$tree.oracle.json" \
    --verdicts "$here/verdicts_python.json" "$@"
done
