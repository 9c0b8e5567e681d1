#!/usr/bin/env bash
# Installs puppeteer-core and axe-core (npm packages pinned in tests/browser/) into
# build-browser/, where the dashboard's browser tests load them to drive Debian's
# chromium. Safe to run again: npm runs only when the pinned versions changed or
# the install is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/npm-pinned.sh tests/browser build-browser browser
