#!/usr/bin/env bash
# Builds the release preset and runs the encoder benchmarks against the peer
# encoders: medians of 9 repetitions, interleaved at random so that a busy
# moment on a shared machine falls on every side alike, then the ratio table.
# Extra arguments go to the benchmark, e.g. scripts/bench.sh --benchmark_filter=doubles
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target kestrune_bench
exec build/release/bench/kestrune_bench --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true \
  --benchmark_report_aggregates_only=true --benchmark_min_time=0.1 "$@"
