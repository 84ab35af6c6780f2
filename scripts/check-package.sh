#!/usr/bin/env bash
# Proves the packaging: a tiny consumer builds against the installed package
# (find_package) and against the source tree (add_subdirectory).
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S . -B "$work/lib" -DCMAKE_BUILD_TYPE=Release -DKESTRUNE_BUILD_TESTS=OFF -DKESTRUNE_BUILD_TOOLS=OFF \
      -DKESTRUNE_BUILD_BENCHMARKS=OFF -DKESTRUNE_BUILD_FUZZERS=OFF -DCMAKE_INSTALL_PREFIX="$work/prefix" >/dev/null
cmake --build "$work/lib" -j"$(nproc)" >/dev/null
cmake --install "$work/lib" >/dev/null

for mode in find_package add_subdirectory; do
  cmake --no-warn-unused-cli -S examples/consumer -B "$work/$mode" -DCONSUME="$mode" -DKESTRUNE_SOURCE_DIR="$PWD" \
        -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
  cmake --build "$work/$mode" -j"$(nproc)" >/dev/null
  out=$("$work/$mode/consumer")
  [ "$out" = '{"symbols":[],"total_count":0,"truncated":false,"has_more":false,"offset":0}' ] ||
    { echo "package check ($mode): unexpected output: $out" >&2; exit 1; }
  echo "package check ($mode): ok"
done
