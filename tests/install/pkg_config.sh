#!/usr/bin/env bash
# A project outside finds the copy by pkg-config, builds against it and runs.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
program=$ZEL_WORK/outside_by_pkg_config
example=$ZEL_WORK/encode_frame_by_pkg_config

export PKG_CONFIG_PATH=$ZEL_COPY/$ZEL_LIBDIR/pkgconfig
build() {
  # Lists of options: to be split into words.
  # shellcheck disable=SC2046,SC2086
  "$CXX" -std=c++20 $CXXFLAGS "$1" -o "$2" $(pkg-config --cflags --libs ZelDependencies_2012)
}
build "$here/outside_project/main.cpp" "$program"
build "$here/../../examples/encode_frame.cpp" "$example"

export LD_LIBRARY_PATH=$ZEL_COPY/$ZEL_LIBDIR
"$program"
test "$("$example" | wc -c)" -gt 0
