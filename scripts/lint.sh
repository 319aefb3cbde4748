#!/usr/bin/env bash
# lint.sh JOBS: the thorough checks. clang-tidy reads the commands of a clang build, so that it sees what
# that compiler would see; cppcheck looks over the same files for what crosses functions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=$1 build=build/lint

# A rule set that it can't read, clang-tidy replaces by its own in silence.
if clang-tidy-14 --dump-config 2>&1 | grep 'Error parsing' >&2; then exit 1; fi

cmake --preset release-clang -B "$build" -DZEL_BUILD_TESTS=OFF >/dev/null
echo "lint: clang-tidy"
# On standard error it counts what it left out of the system's headers.
run-clang-tidy-14 -quiet -p "$build" -j "$jobs" '/(zel|tools)/.*\.cpp$' 2>"$build/clang-tidy.err" \
  >"$build/clang-tidy.log" || {
  sed -e 's/\x1b\[[0-9;]*m//g' -e '/^clang-tidy-14 /d' "$build/clang-tidy.log" >&2
  exit 1
}

echo "lint: cppcheck"
mkdir -p "$build/cppcheck"
cppcheck --quiet --project="$build/compile_commands.json" -j "$jobs" --error-exitcode=1 --inline-suppr \
  --enable=warning,performance,portability --suppressions-list=.cppcheck-suppressions \
  --cppcheck-build-dir="$build/cppcheck"

echo "lint: shell scripts"
shellcheck dev .ci/run scripts/*.sh tests/install/*.sh
