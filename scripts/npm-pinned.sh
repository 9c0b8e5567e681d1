#!/usr/bin/env bash
# Usage: npm-pinned.sh PINNED WORK LABEL
# Installs the npm packages pinned by PINNED/package.json and package-lock.json
# into WORK/node_modules. Safe to run again: npm runs only when the pinned
# versions changed or the install is missing. LABEL starts every line it prints.
set -euo pipefail
cd "$(dirname "$0")/.."

pinned=$1
work=$2
label=$3

if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "$label: node and npm are missing: run bash scripts/setup.sh" >&2
  exit 1
fi

mkdir -p "$work"
# installed.lock is a copy of the lock file, written only once npm ci succeeded.
if [ ! -d "$work/node_modules" ] ||
  ! cmp -s "$pinned/package-lock.json" "$work/installed.lock" ||
  ! cmp -s "$pinned/package.json" "$work/package.json"; then
  rm -f "$work/installed.lock"
  cp "$pinned/package.json" "$pinned/package-lock.json" "$work/"
  echo "$label: npm ci in $work"
  (cd "$work" && npm ci --no-audit --no-fund)
  cp "$pinned/package-lock.json" "$work/installed.lock"
fi
