#!/usr/bin/env bash
# make_copy.sh CMAKE BUILD COPY: installs the build and moves the result to COPY.
set -euo pipefail
cmake=$1 build=$2 copy=$3

rm -rf "$copy" "$copy.first"
DESTDIR='' "$cmake" --install "$build" --prefix "$copy.first" >/dev/null
mv "$copy.first" "$copy"
