#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds with AddressSanitizer and
# UndefinedBehaviorSanitizer, and with ThreadSanitizer, and runs every test under
# each. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
# GitHub's published replies, which the GitHub client tests replay.
bash scripts/github-material.sh
# The published MCP client library, which drives quorvane-mcp end to end.
bash scripts/mcp-client.sh

jobs=$(nproc 2>/dev/null || echo 2)

for preset in asan tsan; do
  echo "== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
done

echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ctest --preset asan -j "$jobs"

echo "== tests under ThreadSanitizer"
# ThreadSanitizer cannot map its shadow memory with some address randomisation
# settings; running without randomisation sidesteps that where it is allowed.
if setarch "$(uname -m)" -R true 2>/dev/null; then
  setarch "$(uname -m)" -R ctest --preset tsan -j "$jobs"
else
  ctest --preset tsan -j "$jobs"
fi
