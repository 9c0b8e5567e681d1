#!/usr/bin/env bash
# Builds the Debian package from the optimised build in build-release/: the
# program, its shell completions, manual page and systemd user unit, then CPack.
# The package lands in build-release/ as quorvane_VERSION_ARCH.deb, the only one
# there. The build carries no debug information, which the package would not ship.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset release >/dev/null
# Only what the package holds: neither the tests nor the benchmarks.
cmake --build --preset release -j "$jobs" --target quorvane quorvane-mcp quorvane-tray quorvane_reference
rm -f build-release/quorvane_*.deb
(cd build-release && cpack -G DEB)
