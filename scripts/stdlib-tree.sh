#!/usr/bin/env bash
# A large tree no one here wrote, for the benchmarks: the standard library of
# the machine's Python (less site-packages and caches) copied to DIR, with
# the Markdown of /usr/share/doc as its docs/ (CPython's own documentation
# has no Markdown form offline).
#   scripts/stdlib-tree.sh DIR
set -euo pipefail
tree=$1
stdlib=$(python3 -c "import sysconfig; print(sysconfig.get_path('stdlib'))")
mkdir -p "$tree/docs"
tar -C "$stdlib" --exclude=./site-packages --exclude=./dist-packages --exclude=__pycache__ -cf - . | tar -C "$tree" -xf -
find /usr/share/doc -name '*.md' -type f | while read -r f; do
  rel=${f#/usr/share/doc/}
  cp "$f" "$tree/docs/${rel//\//-}"
done
