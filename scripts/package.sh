#!/usr/bin/env bash
# Builds the Debian package from the optimised build in build/: the program, its
# shell completions, manual page and systemd user unit, then CPack. The package
# lands in build/ as quorvane_VERSION_ARCH.deb, the only one there.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset default >/dev/null
# Only what the package holds: neither the tests nor the benchmarks.
cmake --build --preset default -j "$jobs" --target quorvane quorvane-mcp quorvane_reference
rm -f build/quorvane_*.deb
(cd build && cpack -G DEB)
