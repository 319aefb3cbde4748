#!/usr/bin/env bash
# coverage.sh BUILD JOBS: runs the suite of an instrumented build and shows which lines it reached.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$1 jobs=$2

find "$build" -name '*.gcda' -delete
ctest --preset coverage -j "$jobs" >"$build/suite.log" || {
  tail -n 60 "$build/suite.log" >&2
  exit 1
}
lcov --quiet --capture --directory "$build" --base-directory "$PWD" --no-external \
  --output-file "$build/all.info"
lcov --quiet --extract "$build/all.info" "$PWD/zel/*" "$PWD/tools/*" --output-file "$build/lines.info"
genhtml --quiet --output-directory "$build/html" "$build/lines.info"
lcov --list "$build/lines.info"
echo "$build/html/index.html"
