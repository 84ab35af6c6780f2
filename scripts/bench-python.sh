#!/usr/bin/env bash
# Builds the release preset's Python module and times it against json, orjson
# and the same builders in plain Python, under the python3 on PATH: medians of
# interleaved repetitions, then Markdown tables of ratios and targets.
#   scripts/bench-python.sh [--quick] [--no-memory] [--no-sizes]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release -DPython_EXECUTABLE="$(python3 -c "import sys; print(sys.executable)")" >/dev/null
cmake --build --preset release -j2 --target kestrune_mcp_responses_python
PYTHONPATH=build/release/python exec python3 bench/python/run.py "$@"
