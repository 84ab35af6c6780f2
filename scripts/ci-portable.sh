#!/usr/bin/env bash
# The whole suite with the portable text blocks instead of SSE2: the code
# path of targets without SSE2, which no other build compiles.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset portable >/dev/null
cmake --build --preset portable -j"$(nproc)"
ctest --preset portable -j"$(nproc)"
