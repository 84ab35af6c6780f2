#!/usr/bin/env bash
# Lines of code and of tests: non-blank, non-comment lines of C++, CMake,
# shell, Python and JavaScript, counted by cloc (Debian: cloc). Code is
# include/, src/, tools/, python/, indexer/, servers/ and examples/ (less the
# example work tree, and installed npm packages); tests are tests/ and fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v cloc >/dev/null || scripts/install-deps.sh
langs='C++,C/C++ Header,CMake,Bourne Shell,Python,JavaScript'
count() { cloc --quiet --csv --include-lang="$langs" --exclude-dir=node_modules,repo "$@" | awk -F, '$2 == "SUM" { print $5 }'; }
code=$(count include src tools python indexer servers examples)
tests=$(count tests fuzz)
echo "code: $code lines; tests: $tests lines ($((100 * tests / code))% of the code)"
