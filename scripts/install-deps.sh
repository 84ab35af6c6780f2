#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/install-deps.sh [core|all]   (default: all)
set -euo pipefail

core=(cmake g++ make git libgtest-dev rapidjson-dev nlohmann-json3-dev libsqlite3-dev universal-ctags
      libgit2-dev pkg-config
      pybind11-dev python3-dev python3-wheel)
# python3-clang: the C and C++ oracle of bench/accuracy.
extra=(libbenchmark-dev clang clang-format clang-tidy libclang-rt-14-dev cloc sqlite3 python3-clang)
want=("${core[@]}")
[ "${1:-all}" = all ] && want+=("${extra[@]}")

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# Node for the official MCP client's tests: Debian's unless one is installed.
command -v node >/dev/null && command -v npm >/dev/null || missing+=(nodejs npm)
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
