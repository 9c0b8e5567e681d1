#!/usr/bin/env bash
# Line coverage of the program's own code by the whole suite: builds with gcov's
# counters in build-coverage/, runs every test, and prints gcovr's summary. Test
# files and the test support code are left out of the figure.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v gcovr >/dev/null; then
  echo "coverage: gcovr is missing; install the Debian package gcovr" >&2
  exit 1
fi
jobs=$(nproc 2>/dev/null || echo 2)
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake --preset coverage "${launcher[@]}" >/dev/null
cmake --build --preset coverage -j "$jobs"
# Counters from an earlier run would be added to this one's.
find build-coverage -name '*.gcda' -delete
# A failing test still counts what it ran; the figure is what matters here, and
# the suite proper is scripts/test.sh.
ctest --preset coverage -j "$jobs" --output-on-failure >build-coverage/ctest.log 2>&1 ||
  echo "coverage: some tests failed, see build-coverage/ctest.log" >&2
gcovr --root . --filter 'src/' --exclude '.*Test\.cpp$' --exclude 'src/testing/' \
  --gcov-ignore-parse-errors --print-summary --txt build-coverage/coverage.txt build-coverage
