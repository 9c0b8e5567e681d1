#!/usr/bin/env bash
# Installs GitHub's published API description and recorded exchanges (two npm
# packages pinned in tests/github-material/) into build-github-material/, and
# writes build-github-material/material.json, the pieces of them that the GitHub
# client tests replay. Safe to run again: npm runs only when the pinned versions
# changed or the install is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/npm-pinned.sh tests/github-material build-github-material github-material
node tests/github-material/extract.mjs build-github-material/node_modules \
  build-github-material/material.json
