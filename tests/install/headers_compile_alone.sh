#!/usr/bin/env bash
# Each installed header compiles as the only line of a program, with nothing but the copy to include.
set -euo pipefail

mapfile -t headers < <(cd "$ZEL_COPY/include" && find zel -name '*.h' | sort)
((${#headers[@]})) || {
  echo "no headers were installed" >&2
  exit 1
}
compile() {
  echo "#include \"$1\"" | "$CXX" -x c++ -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Werror \
    -I"$ZEL_COPY/include" -fsyntax-only - || {
    echo "$1 does not compile alone" >&2
    return 1
  }
}
export -f compile
printf '%s\n' "${headers[@]}" | xargs -P "$(nproc)" -I {} bash -c 'compile {}'
echo "${#headers[@]} headers"
