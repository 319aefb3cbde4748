#!/usr/bin/env bash
# Lays out every C++ file of the project; with --check, lists what is out of layout and fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mode=(-i)
[[ ${1-} != --check ]] || mode=(--dry-run --Werror)

# Version 14 alone: another one lays out some constructs otherwise.
find zel tools tests bench examples -type f \( -name '*.h' -o -name '*.cpp' \) -print0 |
  xargs -0 -r clang-format-14 "${mode[@]}"
