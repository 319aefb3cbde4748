#!/usr/bin/env bash
# fuzz.sh BUILD SECONDS [TARGET]: runs each fuzz target, or one, for so long. What it finds worth keeping
# stays in BUILD/corpus/TARGET for the next run; an input that breaks something goes to BUILD/crashes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=$1 seconds=$2 wanted=${3-}

found=0
mkdir -p "$build/crashes"
for program in "$build"/bin/fuzz/*; do
  name=$(basename "$program")
  [[ -x $program && (-z $wanted || $name == "$wanted" || $name == "fuzz_$wanted") ]] || continue
  found=1
  corpus=$build/corpus/$name
  mkdir -p "$corpus"
  seeds=()
  [[ ! -d tests/fuzz/corpus/$name ]] || seeds=("tests/fuzz/corpus/$name")
  [[ ! -f tests/fuzz/dictionaries/$name.dict ]] || seeds=("-dict=tests/fuzz/dictionaries/$name.dict" "${seeds[@]}")
  echo "fuzz: $name for $seconds s"
  log=$build/crashes/$name.log
  if ! "$program" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
    -artifact_prefix="$build/crashes/$name-" "$corpus" "${seeds[@]}" >"$log" 2>&1; then
    tail -n 60 "$log" >&2
    echo "fuzz: $name failed; the whole log is $log" >&2
    exit 1
  fi
  grep -E 'number_of_executed_units|peak_rss' "$log"
done
((found)) || {
  echo "fuzz: there is no target ${wanted:-at all}" >&2
  exit 1
}
