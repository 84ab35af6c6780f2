#!/usr/bin/env bash
# make, after touching every library source whose content changed since the
# last build. For mutation runs: a tool that restores a file with its old
# mtime leaves make seeing it as older than the mutant's object, so the
# mutant would stay compiled into every later run. Use it as the build's
# make program:
#   cmake -S . -B build/mutate -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTRUNE_BUILD_BENCHMARKS=OFF \
#         -DCMAKE_MAKE_PROGRAM="$PWD/scripts/make-by-content.sh"
set -euo pipefail
src=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' CMakeCache.txt 2>/dev/null || true)
if [ -n "$src" ]; then
  (cd "$src" && git ls-files -co --exclude-standard -z src include | xargs -0 sha1sum) \
    | sort -k2 >.content-hashes.new
  if [ -f .content-hashes ]; then
    join -j 2 -o 1.1,2.1,0 .content-hashes .content-hashes.new | awk '$1 != $2 { print $3 }' |
      while read -r f; do touch "$src/$f"; done
  fi
  mv .content-hashes.new .content-hashes
fi
exec make "$@"
