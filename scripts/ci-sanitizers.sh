#!/usr/bin/env bash
# The whole test suite under AddressSanitizer + UndefinedBehaviorSanitizer,
# and the concurrency tests under ThreadSanitizer. Any report fails.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

cmake --preset asan >/dev/null
cmake --build --preset asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 ctest --preset asan -j"$jobs"

cmake --preset tsan >/dev/null
cmake --build --preset tsan -j"$jobs" --target concurrency_test code_lines_test
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --preset tsan -R '^(concurrency|code_lines)\.'
