#!/usr/bin/env bash
# Formatting (any diff fails) and clang-tidy (any finding fails) over the
# library, the tool, the indexer, the servers, the examples, the fuzzers and the benchmarks.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.cpp' '*.hpp')
clang-format --dry-run --Werror "${files[@]}"
echo "clang-format: ${#files[@]} files clean"

[ -f build/dev/compile_commands.json ] || cmake --preset dev >/dev/null
run-clang-tidy-14 -p build/dev -quiet -j"$(nproc)" "$PWD/(src|tools|fuzz|bench|examples|indexer|servers|python)/" >build/dev/clang-tidy.log 2>&1 ||
  { grep -E 'warning:|error:' -A3 build/dev/clang-tidy.log >&2; exit 1; }
echo "clang-tidy: clean"
