#!/usr/bin/env bash
# The indexer and the example server at scale, on a large tree no one here
# wrote: the standard library of the machine's Python (less site-packages
# and caches), copied to a scratch folder with the Markdown of /usr/share/doc
# as its docs/. Times a full index, a run with nothing changed, one after
# touching a file and one after editing it (/usr/bin/time: wall time, peak
# RSS), the index's size, the query plans of search and references, and
# each tool's p50/p99 through the official MCP client with the server's
# peak RSS. A benchmark: it is not part of the tests.
#   scripts/bench-index.sh [CALLS]   (default 1000 calls per tool)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
command -v sqlite3 >/dev/null || { echo "bench-index.sh: needs the sqlite3 shell (Debian: sqlite3)" >&2; exit 1; }
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target kestrune-index kestrune-example-server >/dev/null
tests/mcp/install.sh

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
stdlib=$(python3 -c "import sysconfig; print(sysconfig.get_path('stdlib'))")
tree=$scratch/stdlib
scripts/stdlib-tree.sh "$tree"
db=$scratch/index.db
index=build/release/indexer/kestrune-index

run() {  # run LABEL: one indexer run, its summary, time and peak RSS
  /usr/bin/time -f "%e %M" -o "$scratch/time" "$index" "$tree" --db "$db" 2>"$scratch/log" >"$scratch/out"
  read -r seconds rss <"$scratch/time"
  printf '| %s | %s s | %.1f MiB | %s |\n' "$1" "$seconds" "$(awk "BEGIN { print $rss / 1024 }")" \
    "$(sed 's/^kestrune-index: //' "$scratch/out")"
}

echo "stdlib: $stdlib ($(find "$tree" -type f | wc -l) files, $(du -sh "$tree" | cut -f1)," \
  "$(ls "$tree/docs" | wc -l) Markdown files in docs/)"
echo "ctags: $(ctags --version | head -1); $(nproc) cores"
echo
echo "| run | wall | peak RSS | summary |"
echo "|---|---:|---:|---|"
run "full index"
run "nothing changed"
touch "$tree/json/decoder.py"
run "json/decoder.py touched"
echo "# edited" >>"$tree/json/decoder.py"
run "json/decoder.py edited"
echo
sqlite3 "$db" "PRAGMA wal_checkpoint(TRUNCATE);" >/dev/null
echo "index: $(du -b "$db" | cut -f1) bytes ($(du -h "$db" | cut -f1));" \
  "$(sqlite3 "$db" "SELECT (SELECT count(*) FROM symbols) || ' symbols, ' || (SELECT count(*) FROM symbol_refs) ||
    ' references, ' || (SELECT count(*) FROM wiki_sections) || ' wiki sections'")"
echo
echo "query plans:"
plan() {  # plan LABEL QUERY VALUE...: the plan of the server's query QUERY (index/queries.sql), ?1... bound
  local label=$1 name=$2 params=() i=1
  shift 2
  for value in "$@"; do params+=(".parameter set ?$i $value"); i=$((i + 1)); done
  local sql
  sql=$(awk -v n="$name" '/^-- name: /{on = ($3 == n); next} on && !/^[[:space:]]*(--|$)/' index/queries.sql)
  sqlite3 "$db" "${params[@]}" "EXPLAIN QUERY PLAN $sql" | grep -v '^QUERY PLAN' | sed "s/^/  $label: /"
}
plan "search, matches" trigram_matches "'\"parse\"'"
plan "search, exact names" named_exactly "'parse'"
plan "search, dense page" ids_by_rank
plan "references, count" references_count "'os'"
plan "references, page" references_page "'os'" 20 0
echo
node bench/index_tools.mjs "$PWD/build/release/servers/cpp/kestrune-example-server" "$db" "$tree" \
  "$scratch/server-rss" "${1:-1000}"
