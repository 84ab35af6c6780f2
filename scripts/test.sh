#!/usr/bin/env bash
# Builds with warnings as errors and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset dev >/dev/null
cmake --build --preset dev -j"$(nproc)"
ctest --preset dev -j"$(nproc)"
scripts/check-package.sh
