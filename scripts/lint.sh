#!/usr/bin/env bash
# lint.sh JOBS [--changed]: the thorough checks, over everything or over what differs from main, with the
# files that include a header that differs. clang-tidy reads the commands of a clang build, so that it sees
# what that compiler would see; cppcheck looks over the same files for what crosses functions.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=$1 build=build/lint what=${2-}
[[ -z $what || $what == --changed ]] || {
  echo "lint: there is no option '$what'; --changed is the one" >&2
  exit 2
}

echo "lint: shell scripts"
shellcheck dev .ci/run scripts/*.sh tests/install/*.sh

# A rule set that it can't read, clang-tidy replaces by its own in silence.
if clang-tidy-14 --dump-config 2>&1 | grep 'Error parsing' >&2; then exit 1; fi

# Without precompiled headers, so that each file is read with what it includes itself.
cmake --preset release-clang -B "$build" -DZEL_BUILD_TESTS=OFF \
  -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
# The sources to look at: all, or those that changed and those that include what changed.
list_sources() {
  if [[ -z $what ]]; then
    git ls-files --cached --others --exclude-standard 'zel/*.cpp' 'tools/*.cpp'
    return
  fi
  local base file
  base=$(git merge-base HEAD main 2>/dev/null || git merge-base HEAD origin/main)
  {
    git diff --name-only --diff-filter=d "$base" -- zel tools
    git ls-files --others --exclude-standard zel tools
  } | while read -r file; do
    case $file in
      *.cpp) echo "$file" ;;
      *) git grep --untracked -lF "#include \"$file\"" -- 'zel/*.cpp' 'tools/*.cpp' || true ;;
    esac
  done | sort -u
}
mapfile -t sources < <(list_sources)
((${#sources[@]})) || {
  echo "lint: no source differs from main"
  exit 0
}
# Their part of the compiler's commands, which both programs below go by.
mkdir -p "$build/sources"
python3 - "$build/compile_commands.json" "${sources[@]/#/$PWD/}" >"$build/sources/compile_commands.json" <<'END'
import json, sys
with open(sys.argv[1]) as commands:
    picked = [c for c in json.load(commands) if c["file"] in sys.argv[2:]]
if not picked:
    sys.exit("lint: no compiler command is known for what should be looked at")
json.dump(picked, sys.stdout)
END

echo "lint: clang-tidy, ${#sources[@]} files"
scripts/tidy.py "$build/sources" "$jobs"

echo "lint: cppcheck"
mkdir -p "$build/cppcheck"
cppcheck --quiet --project="$build/sources/compile_commands.json" -j "$jobs" --error-exitcode=1 --inline-suppr \
  --enable=warning,performance,portability --suppressions-list=.cppcheck-suppressions \
  --cppcheck-build-dir="$build/cppcheck"
