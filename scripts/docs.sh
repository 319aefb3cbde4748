#!/usr/bin/env bash
# docs.sh OUT: makes the documentation's pages in OUT/html, and fails where a public class or function has no
# words.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=$1

version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
# Locks and events of the platform are installed for the size of what holds them; they are no caller's business.
mapfile -t headers < <(sed -n 's/^ *\(zel\/.*\.h\)$/\1/p' cmake/public_headers.cmake |
  grep -v -E '^zel/platform/(critical_section|event)\.h$')
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
# The names of fields, type tags and operators say what they are.
exempt='Member [^(]*\((variable|typedef|enumeration)\).* is not documented|Member operator.* is not documented'
if grep -v -E "$exempt" "$out/doxygen.log" | sort -u | sed "s|^$PWD/||" | grep . >&2; then
  exit 1
fi
echo "$out/html/index.html"
