#!/usr/bin/env bash
# Installs the Python module kestrune_mcp_responses into the `python3` on PATH
# (or $PYTHON), offline: the build dependencies come from Debian's packages
# (pybind11, CMake, wheel) and pip builds without a registry.
#   scripts/install-python.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh core
py=${PYTHON:-python3}
# setuptools makes wheels with the wheel package; an interpreter without it
# borrows Debian's (pure Python) for the build only.
if ! "$py" -c "import wheel" 2>/dev/null; then
  borrowed=$(mktemp -d)
  trap 'rm -rf "$borrowed"' EXIT
  # The package and its metadata: setuptools finds bdist_wheel by its entry point.
  ln -s /usr/lib/python3/dist-packages/wheel /usr/lib/python3/dist-packages/wheel-*info "$borrowed/"
  export PYTHONPATH="$borrowed${PYTHONPATH:+:$PYTHONPATH}"
fi
"$py" -m pip install --quiet --root-user-action=ignore --no-build-isolation --no-index --no-deps --force-reinstall ./python
cd / && "$py" -c "import kestrune_mcp_responses as m; print('installed', m.__name__, m.__version__, 'for', __import__('sys').executable)"
