#!/usr/bin/env bash
# docs.sh OUT: makes the documentation's pages in OUT/html, and fails where a public name has no words.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=$1

version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
mapfile -t headers < <(sed -n 's/^ *\(zel\/.*\.h\)$/\1/p' cmake/public_headers.cmake)
rm -rf "$out"
mkdir -p "$out"
{
  cat docs/Doxyfile
  echo "PROJECT_NUMBER = $version"
  echo "OUTPUT_DIRECTORY = $out"
  echo "INPUT = README.md CONTRIBUTING.md CHANGELOG.md docs ${headers[*]}"
} | doxygen - >"$out/doxygen.log" 2>&1 || {
  cat "$out/doxygen.log" >&2
  exit 1
}
echo "$out/html/index.html"
