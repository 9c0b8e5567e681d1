#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds with AddressSanitizer and
# UndefinedBehaviorSanitizer and runs every test under them, then builds the
# concurrency tests with ThreadSanitizer and runs those under it. Prints how long
# each stage took. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/stages.sh

stage "setup" bash scripts/setup.sh
# GitHub's published replies, which the GitHub client tests replay.
stage "GitHub material" bash scripts/github-material.sh
# The published MCP client library, which drives quorvane-mcp end to end.
stage "MCP client" bash scripts/mcp-client.sh
# puppeteer-core and axe-core, which drive Debian's chromium through the dashboard.
stage "browser tools" bash scripts/browser-tools.sh

jobs=$(nproc 2>/dev/null || echo 2)
# A compiler cache, when the machine has one, makes a second run cheap.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime"
fi

stage "build: asan" bash -c "cmake --preset asan ${launcher[*]} >/dev/null &&
  cmake --build --preset asan -j $jobs"
stage "tests under AddressSanitizer and UndefinedBehaviorSanitizer" ctest --preset asan -j "$jobs" \
  -E '^FuzzReplay\.'
# Every fuzz target's seeds and saved crash inputs, once each, under the same
# sanitizers (bench/fuzz.sh is what fuzzes).
stage "fuzz seeds and regressions replayed" ctest --preset asan -j "$jobs" -R '^FuzzReplay\.' \
  --no-tests=error

# Only the concurrency tests are built and run: ThreadSanitizer finds races, and
# the rest of the suite runs on one thread.
stage "build: tsan (concurrency tests)" bash -c "cmake --preset tsan ${launcher[*]} >/dev/null &&
  cmake --build --preset tsan -j $jobs --target quorvane_tests"
# ThreadSanitizer cannot map its shadow memory with some address randomisation
# settings; running without randomisation sidesteps that where it is allowed.
if setarch "$(uname -m)" -R true 2>/dev/null; then
  stage "tests under ThreadSanitizer" setarch "$(uname -m)" -R ctest --preset tsan -j "$jobs"
else
  stage "tests under ThreadSanitizer" ctest --preset tsan -j "$jobs"
fi
stage_total
