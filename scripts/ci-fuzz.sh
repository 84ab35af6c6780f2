#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer (clang, ASan+UBSan), replays each
# seed corpus, then fuzzes each target for FUZZ_SECONDS (default 60). A crash
# or a failed property fails the run; the input is left in build/fuzz/crashes.
# The seed is fixed (FUZZ_SEED) and each run starts from the seed corpus alone,
# so a run is reproducible: a longer run here covers what CI's run explores.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
seed=${FUZZ_SEED:-20261123}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)"
# Inputs left by an earlier run would be taken for this run's findings.
rm -rf build/fuzz/crashes
mkdir -p build/fuzz/crashes
for target in encoder text request ask lines mcp mcp_server; do
  bin=build/fuzz/fuzz/fuzz_$target
  corpus=fuzz/corpus/$target
  work=build/fuzz/work/$target
  rm -rf "$work"
  mkdir -p "$work"
  echo "== fuzz $target: replay $(ls "$corpus" | wc -l) seeds, then ${seconds}s"
  "$bin" -runs=0 "$corpus" 2>&1 | tail -n 1
  "$bin" -seed="$seed" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
         -artifact_prefix=build/fuzz/crashes/"$target"- -print_final_stats=1 "$work" "$corpus" 2>&1 |
    grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|==|SUMMARY|.*property failed)' || true
  if ls build/fuzz/crashes/"$target"-* >/dev/null 2>&1; then
    echo "fuzz $target found a failing input:" build/fuzz/crashes/"$target"-* >&2
    exit 1
  fi
done
