#!/usr/bin/env bash
# Installs GitHub's published API description and recorded exchanges (two npm
# packages pinned in tests/github-material/) into build-github-material/, and
# writes build-github-material/material.json, the pieces of them that the GitHub
# client tests replay. Safe to run again: npm runs only when the pinned versions
# changed or the install is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

pinned=tests/github-material
work=build-github-material

if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "github-material: node and npm are missing: run bash scripts/setup.sh" >&2
  exit 1
fi

mkdir -p "$work"
# installed.lock is a copy of the lock file, written only once npm ci succeeded.
if [ ! -d "$work/node_modules" ] ||
  ! cmp -s "$pinned/package-lock.json" "$work/installed.lock" ||
  ! cmp -s "$pinned/package.json" "$work/package.json"; then
  rm -f "$work/installed.lock"
  cp "$pinned/package.json" "$pinned/package-lock.json" "$work/"
  echo "github-material: npm ci in $work"
  (cd "$work" && npm ci --no-audit --no-fund)
  cp "$pinned/package-lock.json" "$work/installed.lock"
fi

node "$pinned/extract.mjs" "$work/node_modules" "$work/material.json"
