#!/usr/bin/env bash
# Builds the Debian package from the optimised build in build-release/: the
# programs, their shell completions, manual pages and systemd user unit, the
# desktop entries, icons and software-centre metadata, then CPack. Before the
# package it checks what an install lays out; after, lintian checks the package
# and any error fails the build (its warnings are printed). The package lands in
# build-release/ as quorvane_VERSION_ARCH.deb, the only one there. The build
# carries no debug information, which the package would not ship.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset release >/dev/null
# Only what the package holds: neither the tests nor the benchmarks.
cmake --build --preset release -j "$jobs" --target quorvane quorvane-mcp quorvane-tray quorvane_reference

installed=$(mktemp -d)
trap 'rm -rf "$installed"' EXIT
cmake --install build-release --prefix "$installed" >/dev/null
bash packaging/check-install.sh "$installed"

rm -f build-release/quorvane_*.deb
(cd build-release && cpack -G DEB)
deb=$(ls build-release/quorvane_*.deb)
echo "lintian $deb:"
lintian --fail-on error "$deb"
echo "lintian: no errors"
