#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, tracks the repositories given as
# arguments (this checkout when none is given) and prints their state.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"

bash "$root/scripts/setup.sh"
(
  cd "$root"
  cmake --preset default >/dev/null
  cmake --build --preset default -j "$(nproc 2>/dev/null || echo 2)" --target quorvane >/dev/null
)

quorvane="$root/build/bin/quorvane"
if [ $# -eq 0 ]; then
  set -- "$root"
fi
"$quorvane" repos add "$@"
echo
"$quorvane" scan
