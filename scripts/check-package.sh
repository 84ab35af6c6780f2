#!/usr/bin/env bash
# Proves the packaging: a tiny consumer builds against the installed package
# (find_package) and against the source tree (add_subdirectory), with the
# nlohmann/json bridge; the installed tree holds only the public headers.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S . -B "$work/lib" -DCMAKE_BUILD_TYPE=Release -DKESTRUNE_BUILD_TESTS=OFF -DKESTRUNE_BUILD_TOOLS=OFF \
      -DKESTRUNE_BUILD_BENCHMARKS=OFF -DKESTRUNE_BUILD_FUZZERS=OFF -DCMAKE_INSTALL_PREFIX="$work/prefix" >/dev/null
cmake --build "$work/lib" -j"$(nproc)" >/dev/null
cmake --install "$work/lib" >/dev/null

headers=$(cd "$work/prefix/include" && find . -type f | sort)
expected_headers=$(cd include && find . -type f | sort)
[ "$headers" = "$expected_headers" ] ||
  { printf 'package check: installed headers differ from include/:\n%s\n' "$headers" >&2; exit 1; }

for mode in find_package add_subdirectory; do
  cmake --no-warn-unused-cli -S examples/consumer -B "$work/$mode" -DCONSUME="$mode" -DKESTRUNE_SOURCE_DIR="$PWD" \
        -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
  cmake --build "$work/$mode" -j"$(nproc)" >/dev/null
  out=$("$work/$mode/consumer")
  expected='{"jsonrpc":"2.0","id":1,"result":{"content":[{"type":"text","text":"{\"symbols\":[],\"total_count\":0,\"truncated\":false,\"has_more\":false,\"offset\":0}"}]}}
{"symbols":[],"total_count":0,"truncated":false,"has_more":false,"offset":0}'
  [ "$out" = "$expected" ] ||
    { echo "package check ($mode): unexpected output: $out" >&2; exit 1; }
  echo "package check ($mode): ok"
done
