#!/usr/bin/env bash
# The Python rows of the accuracy table: copies three trees no one here wrote
# to a scratch folder (the standard library of the python3 on PATH, less
# site-packages, dist-packages and __pycache__; Debian's pytest; Debian's
# Pygments), indexes each with kestrune-index as a user would (the default
# configuration: Python files go to the Python analyzer), timed, then again
# with nothing changed, and once with ctags alone (--python "") for the
# index's size; then scores the index with the driver, jedi as the oracle.
# Extra arguments go to the driver.
#   bench/accuracy/python.sh [--disagreements ...]
# SCRATCH (default: $TMPDIR/kestrune-accuracy) keeps the trees, the indexes
# and jedi's cached answers between runs.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/install-deps.sh
cmake --preset dev >/dev/null
cmake --build --preset dev -j2 --target kestrune-index >/dev/null
indexer="$PWD/build/dev/indexer/kestrune-index"
mkdir -p "${SCRATCH:-${TMPDIR:-/tmp}/kestrune-accuracy}"
scratch="$(cd -P "${SCRATCH:-${TMPDIR:-/tmp}/kestrune-accuracy}" && pwd)"  # jedi's answers are keyed by the path

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
  root="$(cd -P "$scratch/$tree" && pwd)"
  db="$scratch/$tree.db"
  rm -f "$db" "$db-wal" "$db-shm" "$db.ctags" "$db.ctags-wal" "$db.ctags-shm"
  /usr/bin/time -f "full index: %e s wall, %U s user + %S s system CPU, peak RSS %M KiB" \
    "$indexer" "$root" --db "$db"
  /usr/bin/time -f "nothing changed: %e s wall" "$indexer" "$root" --db "$db" >/dev/null
  "$indexer" "$root" --db "$db.ctags" --python "" >/dev/null
  echo "index size: $(stat -c %s "$db") bytes; with ctags alone for Python: $(stat -c %s "$db.ctags") bytes"
  /usr/bin/python3 bench/accuracy/accuracy.py --language python --tree "$root" --db "$db" \
    --cache "$scratch/$tree.oracle.json" --verdicts bench/accuracy/verdicts_python.json "$@"
done
