#!/usr/bin/env bash
# Installs the pinned official MCP client (required) and inspector (optional:
# its test is skipped when it does not install) from their lock files. A
# stamp skips npm ci while the lock file is unchanged.
set -euo pipefail
cd "$(dirname "$0")"

install() {  # install DIR: npm ci in DIR unless its stamp matches its lock file
  if ! cmp -s "$1/package-lock.json" "$1/node_modules/.installed-lock.json" 2>/dev/null; then
    (cd "$1" && npm ci --no-audit --no-fund --loglevel=error) &&
      cp "$1/package-lock.json" "$1/node_modules/.installed-lock.json"
  fi
}

install .
install inspector >/dev/null 2>&1 || echo "install.sh: the MCP inspector did not install; its test is skipped" >&2
