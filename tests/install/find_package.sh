#!/usr/bin/env bash
# A project outside finds the copy by find_package, builds against it and runs.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
build=$ZEL_WORK/by_find_package

rm -rf "$build"
cmake -G Ninja -S "$here/outside_project" -B "$build" -DCMAKE_PREFIX_PATH="$ZEL_COPY" \
  -DEXAMPLES="$(realpath "$here/../../examples")"
cmake --build "$build"
"$build/outside"
test "$("$build/encode_frame" | wc -c)" -gt 0
