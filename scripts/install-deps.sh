#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/install-deps.sh [core|all|accuracy]   (default: all)
# accuracy: core and the trees the accuracy benchmark reads (bench/accuracy).
set -euo pipefail

core=(cmake g++ make git libgtest-dev rapidjson-dev nlohmann-json3-dev libsqlite3-dev universal-ctags
      libgit2-dev libcmark-dev pkg-config time golang-go
      pybind11-dev python3-dev python3-wheel)
# python3-clang, python3-jedi: the C/C++ and Python oracles of bench/accuracy.
extra=(libbenchmark-dev clang clang-format clang-tidy libclang-rt-14-dev cloc sqlite3
       python3-jedi python3-clang python3-pygments python3-pytest)
# Go source packages no one here wrote, for bench/accuracy (under /usr/share/gocode).
accuracy=(golang-github-spf13-cobra-dev golang-golang-x-net-dev)
want=("${core[@]}")
[ "${1:-all}" = all ] && want+=("${extra[@]}")
[ "${1:-all}" = accuracy ] && want+=("${accuracy[@]}")

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
