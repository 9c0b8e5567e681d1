#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, adds the folders given as arguments
# (this checkout when none is given) as scan folders, and shows today's work in
# the repositories found there.
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
"$quorvane" folders add "$@"
echo
# The first run tracks every repository found under those folders and reads its
# recent history; then it scans and shows the day.
"$quorvane" today
